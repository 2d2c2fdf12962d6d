// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <memory>
#include <optional>
#include <vector>

/// \file
/// How a POSIX list is shown as entries.
///
///     auto entries = entriesOfPosixAcl(acl);   // in the order in which the list is evaluated
///
/// The owner, the owning group and everyone are flat entries: groups "Read", "Write" and "Execute"
/// without children, so that nothing of the base is lost. Named users and groups, and all of a
/// folder's default list, are entries with a full tree. Only rights that have an effect are shown:
/// what the mask holds back is not.

namespace morvane {

/// What one entry shows, before it becomes check boxes.
struct ShownRights {
    CBPosixIdentity who;
    bool deny = false;
    PosixRights rights = PosixNothing;
    /// One of the three entries of the base, shown flat.
    bool flat = false;
    bool appliesToItem = true;
    /// Child files, child folders and all descendants.
    bool appliesToChildren = false;

    bool operator==(const ShownRights&) const = default;
};

/// Computes the entries to show. A deny entry comes right before the allow entry of its identity,
/// and only if a class that is evaluated later grants what this identity does not have. A named
/// user or group without a right is shown as denied all three. The owner and the owning group of a
/// default list are the creator of the new item and the creator's group.
MORVANE_EXPORT std::vector<ShownRights> shownRightsOfPosixAcl(const PosixAcl& acl);

/// The permission bits for which the boxes of a tree entry are on.
MORVANE_EXPORT std::uint32_t boxesOfRights(PosixRights rights, bool deny, bool isOwner,
                                           bool isDirectory);

/// How many groups of boxes a tree entry starts with.
inline constexpr std::size_t permissionGroups = 3;

/// Makes the groups "Read", "Write" and "Administration" with the boxes of the item's kind; those
/// in `boxes` are on.
MORVANE_EXPORT std::vector<std::shared_ptr<MVTreeNode>> permissionTree(std::uint32_t boxes,
                                                                       bool isDirectory);

/// Makes the group "Applies To" of a folder's entry; `on` has the values of acl_flags whose boxes
/// are on.
MORVANE_EXPORT std::shared_ptr<MVTreeNode> appliesToNode(std::uint32_t on);

MORVANE_EXPORT std::vector<std::shared_ptr<MVAclEntry>> entriesOfPosixAcl(const PosixAcl& acl);

/// Whether entriesOfPosixAcl() shows all of the list: no mask holds anything back, and none lets
/// more through than the entries need.
MORVANE_EXPORT bool isShownWhole(const PosixAcl& acl);

/// The lists for the origin of entries which are to be stored as exactly this list.
MORVANE_EXPORT MVAclOrigin::StoredLists storedListsOf(const PosixAcl& acl);

/// The owner and the owning group of an item.
struct PosixOwnership {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool operator==(const PosixOwnership&) const = default;
};

/// Reads the owner and the owning group from the flat entries of a POSIX list; empty for entries
/// that are no such list.
MORVANE_EXPORT std::optional<PosixOwnership> ownershipToldBy(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries);

}  // namespace morvane
