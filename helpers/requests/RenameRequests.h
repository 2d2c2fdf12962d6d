// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ItemPath.h"

/// Gives items new names in the folders where they are.
///
///     auto answer = renameUrlsTo({a, b}, {"b", "a"});   // a and b change places
///
/// The items of one request are renamed as if at once: one may take the name that another gives up,
/// also in a circle, and a folder may be renamed together with what is inside it. Nothing is ever
/// overwritten, and no temporary name is used. On a network mount, whose rename would overwrite, a
/// file is linked to its new name before it loses the old one; folders and circles are refused.
namespace morvane {

struct RenameAnswer {
    /// Where each item is now, in the order of the request.
    std::vector<NSURL> urls;
    /// For each item 0 if it has its new name, otherwise the errno value that says why not
    /// (EOPNOTSUPP: only at the risk that something is overwritten). It then
    /// has its old name; only when items that change places in a circle could be neither exchanged
    /// nor brought back may one have the name of another of them, which its URL tells.
    std::vector<std::int64_t> codes;
    /// Null if all have their new names. Otherwise a POSIX error with the URL of the first that has
    /// not, or that says why nothing was begun.
    NSErrorRef error;
};

/// One call of the system: 0 or an errno value. `flags` are those of renameat2().
using RenameCall = std::function<int(int folder, const char* from, const char* to, unsigned flags)>;
int systemRename(int folder, const char* from, const char* to, unsigned flags);

/// A request with more items is refused.
inline constexpr std::size_t maxItemsToRename = 100'000;

/// Gives each of `urls` the name at its place in `names`. A link at the end of a path is an item of
/// its own. A request that makes no sense (two items with one name, an item twice, a name that is
/// none) is refused before anything is done. `goesOn` is called before each rename, or circle of
/// them; once it returns false, the remaining items keep their names, with ECANCELED.
RenameAnswer renameUrlsTo(const std::vector<NSURL>& urls, const std::vector<std::string>& names,
                          const PathRule& rule = {}, const RenameCall& call = systemRename,
                          const std::function<bool()>& goesOn = {});

}  // namespace morvane
