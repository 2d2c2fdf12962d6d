// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "FileFacts.h"
#include "LsCommand.h"

/// Visits every item of a tree, one after the other.
namespace morvane {

struct WalkParts {
    const ContentsSource& contents;
    const FactsSource& facts;
    /// Looks at an item, or changes it; `isBelow` tells that it is not the one that was named.
    /// Answers whether to go on.
    std::function<bool(const std::string& path, bool isBelow)> visit;
    /// Is told of a folder whose contents cannot be listed.
    std::function<void(const std::string& path, const NSError& why)> failed;
    /// Whether other file systems below are left out.
    bool staysOnMount = false;
};

/// Visits the item at `path` and, with `recursive`, everything below it, a folder before what is
/// inside. Symbolic links below it are passed over. False if a visit has ended the walk.
bool walkItems(const std::string& path, bool recursive, const WalkParts& parts);

}  // namespace morvane
