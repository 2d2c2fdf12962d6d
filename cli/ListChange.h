// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "ListText.h"

/// Changes of a whole list that one option asks for: --set, --remove, --clear and the like.
namespace morvane {

/// The list of an item, while it is changed.
struct ChangedList {
    EntryList entries;
    std::shared_ptr<const MVAclOrigin> origin;
    /// Whether the item was not named itself, but is below one that was. For a file, what only
    /// folders have is left out then.
    bool isBelow = false;
    /// Whether it is one of many items, so that it is no mistake if there is nothing to do.
    bool isOneOfMany = false;
    /// Whether an entry for nobody whom this system knows is left out where it cannot be stored.
    bool leavesOutUnknown = false;
    const MVAclOrigin::Values& item() const { return origin->values(); }
};

/// Returns what is wrong; the list must not be used then.
using ListChange = std::function<Problem(ChangedList& list)>;

/// Gives the subject of each of `entries` exactly its rights, and changes nobody else's.
ListChange settingEntries(std::vector<TextEntry> entries);
/// Removes what the list says about the subject of each of `entries`.
ListChange removingEntries(std::vector<TextEntry> entries);
/// Removes all entries but those of the owner, the owning group and everyone.
ListChange clearing();
/// Removes what new items inside a folder get.
ListChange clearingDefaults();
/// Replaces the list by the one that was given.
ListChange replacingBy(ListText list);

}  // namespace morvane
