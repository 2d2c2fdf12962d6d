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

    /// Tells in what the list of an item in the folder differs from the one that --propagate would
    /// make. Where the folder gives nothing, an item may have any mode, but its list is expected to
    /// name nobody and to give nothing to items inside. A file is compared with two lists, that of
    /// a file which somebody can execute and that of another, and told the smaller difference.
    /// Empty if the list is as expected.
    Phrase differenceOf(const EntryList& item) const;

  private:
    Phrase differenceOfPosix(const EntryList& item, const PosixAcl& acl) const;
    Phrase differenceOfNfs4(const EntryList& item) const;

    /// Empty if the folder gives its items nothing.
    std::optional<InheritedLists::Level> posix_;
    std::optional<InheritedLevel> nfs4_;
};

}  // namespace morvane
