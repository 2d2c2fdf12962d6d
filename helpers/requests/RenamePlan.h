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

/// Determines what a request to rename items means, before anything is renamed.
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
    /// The folder that the item is in: its path as the request has it, and its index.
    std::string folderPath;
    std::size_t folder = noItem;
    std::string oldName;
    std::string newName;
    /// The name that it has at this moment.
    std::string name;
    std::int64_t code = 0;
    /// The item that has the name which this one is to get, and the item that is to get the name
    /// which this one has.
    std::size_t ahead = noItem;
    std::size_t behind = noItem;
    /// Whether the item was renamed, or cannot be.
    bool visited = false;
};

/// The items of one request with the folders that they are in, which it holds open, and who waits
/// for whose name.
struct RenamePlan {
    std::vector<RenameItem> items;
    std::vector<RenameFolder> folders;
    std::unordered_map<std::string, std::size_t> foldersByPath;
};

/// Plans to give each of `urls` the name at its place in `names`. A request that makes no sense is
/// an error; an item whose folder cannot be opened has its code.
Result<RenamePlan> planOfRenaming(const std::vector<NSURL>& urls,
                                  const std::vector<std::string>& names, const PathRule& rule);

}  // namespace morvane
