// SPDX-License-Identifier: MIT
#include "Nfs4Access.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <variant>
#include <vector>

namespace morvane {

namespace {

/// Whether `entry` speaks of `who`, who is in `groups`.
bool bearsOn(const Nfs4Entry& entry, const Nfs4Item& list, const CBPosixIdentity& who,
             const std::vector<std::uint32_t>& groups, const Nfs4Names& names) {
    const auto identity = identityOfNfs4Entry(entry, list.target, names);
    if (!identity)
        return false;
    if (*identity == who || std::holds_alternative<CBEveryone>(*identity))
        return true;
    const auto* group = std::get_if<CBPosixGroup>(&*identity);
    return group && std::find(groups.begin(), groups.end(), group->gid) != groups.end();
}

}  // namespace

std::uint32_t boxesByNfs4Acl(const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names) {
    const auto* user = std::get_if<CBPosixUser>(&who);
    const auto groups =
        user ? CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(user->uid)
             : std::vector<std::uint32_t>{};
    std::uint32_t allowed = 0;
    std::uint32_t denied = 0;
    for (const auto& entry : list.acl.entries) {
        // On a file the flag means nothing.
        const bool isForOthers = list.target.isDirectory && (entry.flags & Nfs4InheritOnly) != 0;
        if (isForOthers || entry.type > Nfs4Deny || !bearsOn(entry, list, who, groups, names))
            continue;
        auto& decision = entry.type == Nfs4Deny ? denied : allowed;
        decision |= entry.mask & ~(allowed | denied);
    }
    return boxesOfNfs4Mask(allowed);
}

bool isServersRoot(const Nfs4Item& list, const CBPosixIdentity& who) {
    return list.form == Nfs4Form::named && who == CBPosixIdentity{CBPosixUser{0}};
}

}  // namespace morvane
