// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "LsCommand.h"

/// Every item of a tree, one after the other.
namespace morvane {

struct WalkParts {
    const ContentsSource& contents;
    const FactsSource& facts;
    /// Looks at an item, or changes it; `isBelow` tells that it is not the one that was named.
    /// Answers whether to go on.
    std::function<bool(const std::string& path, bool isBelow)> visit;
    /// What is inside a folder cannot be told.
    std::function<void(const std::string& path, const NSError& why)> failed;
    /// Other file systems below are passed over.
    bool staysOnMount = false;
};

/// Visits the item at `path` and, with `recursive`, everything below it, a folder before what is
/// inside. Symbolic links below it are passed over. False if a visit has ended the walk.
bool walkItems(const std::string& path, bool recursive, const WalkParts& parts);

}  // namespace morvane
