// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "ListText.h"

/// Changes of a whole list that are said in one word: --set, --remove, --clear and the like.
namespace morvane {

/// The list of an item, while it is changed.
struct ChangedList {
    EntryList entries;
    std::shared_ptr<const MVAclOrigin> origin;
    /// The item was not named, but is below one that was: what only folders have is left out for a
    /// file.
    bool isBelow = false;
    /// It is one of many: to do nothing to it is no mistake.
    bool isOneOfMany = false;
    const MVAclOrigin::Values& item() const { return origin->values(); }
};

/// Answers what is wrong; the list then is to be thrown away.
using ListChange = std::function<Problem(ChangedList& list)>;

/// Gives whom each of `entries` is for these rights and no others, and nobody else others.
ListChange settingEntries(std::vector<TextEntry> entries);
/// Takes away what the list says of whom each of `entries` is for.
ListChange removingEntries(std::vector<TextEntry> entries);
/// Leaves the owner, the owning group and everyone.
ListChange clearing();
/// Takes away what new items inside a folder get.
ListChange clearingDefaults();
/// Has the item get the list of another one.
ListChange replacingBy(ListText list);

}  // namespace morvane
