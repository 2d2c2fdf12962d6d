// SPDX-License-Identifier: MIT
#include "PosixAccess.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <variant>
#include <vector>

namespace morvane {

namespace {

bool contains(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

/// Whether one entry that a member of `groups` can use, who is neither the owner nor named, grants
/// all of `needed`.
bool groupsGrant(const PosixList& list, std::uint32_t owningGroup,
                 const std::vector<std::uint32_t>& groups, PosixRights needed) {
    bool found = false;
    const auto grants = [&](std::uint32_t group, PosixRights rights) {
        if (!contains(groups, group))
            return false;
        found = true;
        return (list.effective(rights) & needed) == needed;
    };
    if (grants(owningGroup, list.owningGroup))
        return true;
    for (const auto& group : list.groups) {
        if (grants(group.id, group.rights))
            return true;
    }
    return !found && (list.others & needed) == needed;
}

/// root reads and writes everything, and executes what anybody may execute.
PosixRights rightsOfRoot(const PosixAcl& acl) {
    const auto& list = acl.access;
    const auto anybody = list.owner | list.mask.value_or(list.owningGroup) | list.others;
    return PosixRead | PosixWrite |
           (acl.isDirectory ? PosixExecute : static_cast<PosixRights>(anybody & PosixExecute));
}

}  // namespace

bool isRoot(const CBPosixIdentity& who) {
    return who == CBPosixIdentity{CBPosixUser{0}};
}

bool owns(const CBPosixIdentity& who, std::uint32_t owner) {
    return who == CBPosixIdentity{CBPosixUser{owner}};
}

bool grants(const PosixAcl& acl, const CBPosixIdentity& who, PosixRights needed) {
    PosixList list = acl.access;
    // The kernel ignores a list whose mask lets nothing through: the users and groups that it names
    // then have the rights of others.
    if (list.mask == PosixNothing)
        list = {list.owner, PosixNothing, list.others, {}, {}, {}};
    if (isRoot(who))
        return (rightsOfRoot(acl) & needed) == needed;
    if (owns(who, acl.owner))
        return (list.owner & needed) == needed;
    if (const auto* user = std::get_if<CBPosixUser>(&who)) {
        for (const auto& named : list.users) {
            if (named.id == user->uid)
                return (list.effective(named.rights) & needed) == needed;
        }
        return groupsGrant(
            list, acl.group,
            CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(user->uid),
            needed);
    }
    if (const auto* group = std::get_if<CBPosixGroup>(&who))
        return groupsGrant(list, acl.group, {group->gid}, needed);
    return (list.others & needed) == needed;
}

PosixRights effectiveRights(const PosixAcl& acl, const CBPosixIdentity& who) {
    PosixRights rights = PosixNothing;
    for (const auto right : {PosixRead, PosixWrite, PosixExecute}) {
        if (grants(acl, who, right))
            rights = rights | right;
    }
    return rights;
}

}  // namespace morvane
