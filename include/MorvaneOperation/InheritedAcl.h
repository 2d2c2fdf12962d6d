// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/PosixAclReduction.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

/// \file
/// What the items below a folder inherit of its entries.
///
///     const auto inherited = inheritedPosixLists(entries, acl);   // the folder's
///     if (inherited.losses.empty())
///         store(inherited.levels[0].file);
///
/// Both throw for entries that do not have the boxes of a folder's: NSException, or
/// std::invalid_argument for one that cannot be copied.

namespace morvane {

/// The levels below a folder: the items directly in it, those in its sub-folders, and everything
/// further down.
inline constexpr std::size_t inheritedLevels = 3;

/// What the items below a folder inherit, as POSIX lists.
struct InheritedLists {
    /// The lists of the items of one level.
    struct Level {
        PosixList file;
        /// The list for a file that somebody can execute now.
        PosixList executable;
        PosixList folder;
        std::optional<PosixList> folderDefaults;
    };
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::array<Level, inheritedLevels> levels;
    /// Whether all of them can be stored as lists.
    PosixAclFit fit = PosixAclFit::fits;
    /// The losses; empty if the lists hold everything that the entries say. EntryLoss::entry has no
    /// meaning here, because the folder's entries have been converted into others.
    EntryLossSet losses;
};

/// Computes what the items inherit as POSIX lists. `folder` is the list that the folder has now:
/// where `entries` say nothing about its owner, owning group or everyone, the items get the
/// folder's rights.
MORVANE_EXPORT InheritedLists inheritedPosixLists(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAcl& folder);

/// What the items of one level inherit, as entries for allow/deny lists.
struct InheritedLevel {
    std::vector<std::shared_ptr<MVAclEntry>> file;
    std::vector<std::shared_ptr<MVAclEntry>> folder;
};
using InheritedEntries = std::array<InheritedLevel, inheritedLevels>;

/// Computes what the items inherit as entries.
MORVANE_EXPORT InheritedEntries
inheritedEntries(const std::vector<std::shared_ptr<MVAclEntry>>& entries);

}  // namespace morvane
