// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "AclCommand.h"
#include "FileFacts.h"
#include "LsCommand.h"

/// The parts that commands work with which look at the lists of whole trees.
namespace morvane {

/// Asks for the lists of several items at once, and waits for the answers.
using ListsSource = std::function<std::vector<Result<EntryList>>(const std::vector<NSURL>& urls)>;

/// How many lists are asked for at once: enough that the service always has something to do, and
/// few enough that little memory is held.
inline constexpr std::size_t listsAtOnce = 64;
/// With lists of thousands of entries fewer: they have about so many entries together, each of
/// which takes some kilobytes.
inline constexpr std::size_t entriesAtOnce = std::size_t{1} << 14;
/// How many to ask for after one of `entries`.
std::size_t listsAtOnceAfter(std::size_t entries);

struct TreeParts {
    ListsSource lists;
    ContentsSource contents;
    /// What can be seen of an item without its list, which the service reads.
    FactsSource facts;
    /// The groups that a user other than root is in; empty if not all users are listed, or not in
    /// time.
    std::function<std::optional<std::set<std::uint32_t>>()> groupsInUse;
    /// Is told how many items are done; answers whether to go on.
    std::function<bool(std::size_t done)> progress;
    /// Prints what is found while the work goes on, and on standard error what has failed.
    std::function<void(const std::string& text)> print;
    std::function<void(const std::string& text)> complain;
};

/// Returns the sorted names of the files and folders in the folder at `path`; anything else, such
/// as a symbolic link, has no list. Items on another mount than `mount` are left out, unless that
/// is 0.
Result<std::vector<std::string>> namesWithLists(const std::string& path, const TreeParts& parts,
                                                std::uint64_t mount = 0);

/// The line that tells how far the work is.
std::string lookedAtLine(std::size_t done);

/// Whether the entries were read from a folder.
bool isOfFolder(const EntryList& entries);

}  // namespace morvane
