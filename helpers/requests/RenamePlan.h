// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "ItemPath.h"

/// What a request to rename items means, before anything is renamed.
namespace morvane {

inline constexpr std::size_t noItem = static_cast<std::size_t>(-1);

/// A folder that items of the request are in.
struct RenameFolder {
    FileDescriptor descriptor;
    dev_t device = 0;
    ino_t inode = 0;
    /// The items in it by their present (by their new) names.
    std::unordered_map<std::string, std::size_t> byOld = {};
    std::unordered_map<std::string, std::size_t> byNew = {};
};

/// One item of the request. Another item is named by its place in the request.
struct RenameItem {
    /// Of the folder that the item is in, as the request spells it, and its number.
    std::string folderPath;
    std::size_t folder = noItem;
    std::string oldName;
    std::string newName;
    /// The name that it has at this moment.
    std::string name;
    std::int64_t code = 0;
    /// Who has the name that this item is to get; who is to get the name that this item has.
    std::size_t ahead = noItem;
    std::size_t behind = noItem;
    /// It was dealt with, or cannot be.
    bool visited = false;
};

/// The items of one request with the folders that they are in, which it holds open, and who waits
/// for whose name.
struct RenamePlan {
    std::vector<RenameItem> items;
    std::vector<RenameFolder> folders;
    std::unordered_map<std::string, std::size_t> foldersByPath;
};

/// Each of `urls` is to get the name at its place in `names`. What cannot be meant is an error; an
/// item whose folder cannot be opened has its code.
Result<RenamePlan> planOfRenaming(const std::vector<NSURL>& urls,
                                  const std::vector<std::string>& names, const PathRule& rule);

}  // namespace morvane
