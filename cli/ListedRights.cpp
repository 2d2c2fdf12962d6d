// SPDX-License-Identifier: MIT
#include "ListedRights.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>

namespace morvane {

namespace {

Boxes boxesOf(PosixRights rights, bool isDirectory) {
    // Whoever may not enter a folder can make nothing in it.
    if (isDirectory && (rights & PosixExecute) == PosixNothing)
        rights = rights - PosixWrite;
    const auto when = [&](PosixRights right, Boxes box) {
        return (rights & right) != PosixNothing ? box : 0;
    };
    return when(PosixRead, ACL_READ_DATA) | when(PosixWrite, ACL_WRITE_DATA) |
           when(PosixExecute, ACL_SEARCH);
}

CBPosixIdentity identityOf(const MVAclEntry& entry) {
    if (!entry.uuid())
        return CBEveryone{};
    const auto who = posixIdentityOfUUID(*entry.uuid());
    // Whoever makes an item is nobody on an item that is there.
    return who ? *who : CBPosixIdentity{CBCreator{}};
}

bool appliesToItem(const MVAclEntry& entry) {
    return (appliesToCode(entry) & ACL_ENTRY_ONLY_INHERIT) != 0;
}

bool contains(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

Boxes boxesBelow(const NSTreeNode& node) {
    if (node.childNodes().empty()) {
        const auto* permission = MVTreeNode::permissionOf(node);
        return permission && permission->state() == MVStateOn
                   ? static_cast<Boxes>(permission->permission())
                   : 0;
    }
    Boxes boxes = 0;
    for (const auto& child : node.childNodes())
        boxes |= boxesBelow(*child);
    return boxes;
}

}  // namespace

Boxes boxesIn(const std::vector<std::shared_ptr<MVTreeNode>>& nodes) {
    Boxes boxes = 0;
    for (const auto& node : nodes)
        boxes |= boxesBelow(*node);
    return boxes;
}

ListedRights::ListedRights(const EntryList& entries)
    : entries_(entries), list_(ItemList::asRead(entries)) {}

bool ListedRights::isOwner(const CBPosixIdentity& who) const {
    return list_ && who == CBPosixIdentity{CBPosixUser{list_->item().owner}};
}

bool ListedRights::isForOthers(const Granted& granted) {
    return std::all_of(granted.through.begin(), granted.through.end(), [](const auto& entry) {
        return subjectOfEntry(*entry) == EntrySubject::everyone;
    });
}

std::shared_ptr<MVAclEntry> ListedRights::entryFor(const CBPosixIdentity& who, bool isClass) const {
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const auto& entry) {
        return entry->isAcl() != isClass && entry->tag() == MVAclTagAllow &&
               identityOf(*entry) == who && appliesToItem(*entry);
    });
    return found == entries_.end() ? nullptr : *found;
}

ListedRights::Granted ListedRights::to(const CBPosixIdentity& who,
                                       const std::vector<std::uint32_t>& groups,
                                       Boxes wanted) const {
    if (!list_)
        return {};
    return list_->posixAcl() ? ofPosix(who, groups, wanted) : ofNfs4(who, groups, wanted);
}

ListedRights::Granted ListedRights::ofPosix(const CBPosixIdentity& who,
                                            const std::vector<std::uint32_t>& groups,
                                            Boxes wanted) const {
    const auto& acl = *list_->posixAcl();
    const auto& list = acl.access;
    Granted granted;
    const auto give = [&](const CBPosixIdentity& whose, bool isClass, PosixRights rights,
                          Boxes further = 0) {
        const auto boxes = (boxesOf(rights, acl.isDirectory) | further) & wanted;
        if (boxes == 0)
            return;
        granted.boxes |= boxes;
        if (const auto entry = entryFor(whose, isClass))
            granted.through.push_back(entry);
    };
    if (isOwner(who)) {
        give(who, true, list.owner, ACL_WRITE_SECURITY);
        return granted;
    }
    if (const auto* user = std::get_if<CBPosixUser>(&who)) {
        for (const auto& named : list.users) {
            if (named.id == user->uid) {
                give(who, false, list.counting(named.rights));
                return granted;
            }
        }
    }
    const auto* group = std::get_if<CBPosixGroup>(&who);
    const auto isIn = [&](std::uint32_t id) {
        return contains(groups, id) || (group && group->gid == id);
    };
    bool isMember = false;
    if (isIn(acl.group)) {
        isMember = true;
        give(CBPosixGroup{acl.group}, true, list.effective(list.owningGroup));
    }
    for (const auto& named : list.groups) {
        if (isIn(named.id)) {
            isMember = true;
            give(CBPosixGroup{named.id}, false, list.counting(named.rights));
        }
    }
    if (!isMember)
        give(CBEveryone{}, true, list.others);
    return granted;
}

ListedRights::Granted ListedRights::ofNfs4(const CBPosixIdentity& who,
                                           const std::vector<std::uint32_t>& groups,
                                           Boxes wanted) const {
    Granted granted;
    Boxes decided = ~wanted;
    for (const auto& entry : entries_) {
        const auto whose = identityOf(*entry);
        const auto* group = std::get_if<CBPosixGroup>(&whose);
        const bool bearsOn = whose == who || std::holds_alternative<CBEveryone>(whose) ||
                             (group && contains(groups, group->gid));
        if (!bearsOn || !appliesToItem(*entry))
            continue;
        const auto fresh = boxesIn(entry->permissions()) & ~decided;
        decided |= fresh;
        if (entry->tag() != MVAclTagAllow || fresh == 0)
            continue;
        granted.boxes |= fresh;
        granted.through.push_back(entry);
    }
    return granted;
}

}  // namespace morvane
