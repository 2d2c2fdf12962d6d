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

/// What is in the folder itself, in its sub-folders, and further down.
inline constexpr std::size_t inheritedLevels = 3;

/// As POSIX lists.
struct InheritedLists {
    struct Level {
        PosixList file;
        /// For a file that somebody can execute now.
        PosixList executable;
        PosixList folder;
        std::optional<PosixList> folderDefaults;
    };
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::array<Level, inheritedLevels> levels;
    /// Whether all of them are lists.
    PosixAclFit fit = PosixAclFit::fits;
    /// What of the entries the lists do not hold; empty if they hold them all. The entries are not
    /// counted, as those of the folder have become others.
    EntryLossSet losses;
};

/// `folder` is the list that the folder has; the classes of its base that `entries` do not speak of
/// are those of the items, too.
MORVANE_EXPORT InheritedLists inheritedPosixLists(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAcl& folder);

/// As entries, for allow/deny lists.
struct InheritedLevel {
    std::vector<std::shared_ptr<MVAclEntry>> file;
    std::vector<std::shared_ptr<MVAclEntry>> folder;
};
using InheritedEntries = std::array<InheritedLevel, inheritedLevels>;

MORVANE_EXPORT InheritedEntries
inheritedEntries(const std::vector<std::shared_ptr<MVAclEntry>>& entries);

}  // namespace morvane
