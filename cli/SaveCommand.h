// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ListChanging.h"
#include "ListText.h"

namespace morvane {

/// `morvane acl PATH... --save FILE`: writes the lists of the items, and with `recursive` those of
/// everything below them.
struct SaveOptions {
    std::vector<std::string> paths;
    /// "-" is standard output.
    std::string file;
    bool recursive = false;
    /// Other file systems below are entered, too.
    bool crossesMounts = false;
    bool json = false;
    /// In bytes: what is saved can be restored.
    std::size_t mostContent = morvane::mostContent;
};
Outcome runSave(const SaveOptions& options, const ChangeParts& parts);

}  // namespace morvane
