// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "EntryText.h"

/// Finds out which entries of a list give somebody rights.
namespace morvane {

/// Rights to an item: bits of acl_perms.
using Boxes = std::uint32_t;

/// The boxes that are on in a tree of permissions.
Boxes boxesIn(const std::vector<std::shared_ptr<MVTreeNode>>& nodes);

/// A list taken by itself: folders above, the mount and the rights of root are left out of account.
class ListedRights {
  public:
    /// The entries as a service sends them, in the order in which they count.
    explicit ListedRights(const EntryList& entries);

    struct Granted {
        Boxes boxes = 0;
        /// The entries that give them.
        EntryList through = {};
    };
    /// Returns which of the `wanted` rights the list gives `who`, who is a member of `groups`. A
    /// POSIX list gives reading, writing and executing or searching, and the owner the changing of
    /// permissions.
    Granted to(const CBPosixIdentity& who, const std::vector<std::uint32_t>& groups,
               Boxes wanted) const;

    /// Whether root has rights that the list does not give; on a network mount the server says.
    bool isOverruledByRoot() const { return list_ && list_->posixAcl(); }
    /// Whether `who` is named by a list that the kernel ignores because its mask lets nothing
    /// through.
    bool isVoidFor(const CBPosixIdentity& who) const;
    /// Whether the user owns the item.
    bool isOwner(const CBPosixIdentity& who) const;
    /// Whether only the entries for everyone give the rights.
    static bool isForOthers(const Granted& granted);

  private:
    Granted ofPosix(const CBPosixIdentity& who, const std::vector<std::uint32_t>& groups,
                    Boxes wanted) const;
    Granted ofNfs4(const CBPosixIdentity& who, const std::vector<std::uint32_t>& groups,
                   Boxes wanted) const;
    /// The entry for the item itself that allows something to `who`; `isClass` tells that it is one
    /// of the three of the mode.
    std::shared_ptr<MVAclEntry> entryFor(const CBPosixIdentity& who, bool isClass) const;

    const EntryList entries_;
    const std::optional<ItemList> list_;
    /// A POSIX list as it is stored, and as it takes effect, without a mask.
    PosixList stored_;
    PosixList counting_;
    /// An entry of an allow/deny list that is for the item itself, and what it says of whom.
    struct Rule {
        std::shared_ptr<MVAclEntry> entry;
        CBPosixIdentity whose;
        Boxes boxes = 0;
    };
    std::vector<Rule> rules_;
    /// What entryFor() finds in a POSIX list, which may have thousands of entries.
    std::map<std::pair<bool, NSUUID>, std::shared_ptr<MVAclEntry>> byWhom_;
};

}  // namespace morvane
