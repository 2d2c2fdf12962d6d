// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <optional>

#include "EntryText.h"

/// What a folder's list gives the items in it.
namespace morvane {

class GivenList {
  public:
    /// The entries of the folder, as a service sends them.
    explicit GivenList(const EntryList& folder);

    /// What the list of an item in the folder says otherwise than --propagate would make it. Where
    /// the folder gives nothing, an item may have any mode, and its list is expected to name nobody
    /// and to give nothing on. A file is compared with the list from which it differs less: that of
    /// one that somebody can execute, or of another. Empty if it is as expected.
    Phrase differenceOf(const EntryList& item) const;

  private:
    Phrase differenceOfPosix(const EntryList& item, const PosixAcl& acl) const;
    Phrase differenceOfNfs4(const EntryList& item) const;

    /// Empty if the folder gives its items nothing.
    std::optional<InheritedLists::Level> posix_;
    std::optional<InheritedLevel> nfs4_;
};

}  // namespace morvane
