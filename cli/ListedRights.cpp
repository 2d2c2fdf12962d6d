// SPDX-License-Identifier: MIT
#include "ListedRights.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <set>

namespace morvane {

namespace {

Boxes boxesOf(PosixRights rights, bool isDirectory) {
    // To make items in a folder, one must be able to enter it.
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
    // An entry for whoever makes an item gives nobody a right to an item that exists.
    return who ? *who : CBPosixIdentity{CBCreator{}};
}

bool appliesToItem(const MVAclEntry& entry) {
    return (appliesToCode(entry) & ACL_ENTRY_ONLY_INHERIT) != 0;
}

bool contains(const std::vector<std::uint32_t>& ids, std::uint32_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

const PosixNamedRights* named(const std::vector<PosixNamedRights>& all, std::uint32_t id) {
    const auto at = std::lower_bound(all.begin(), all.end(), id,
                                     [](const auto& one, auto wanted) { return one.id < wanted; });
    return at != all.end() && at->id == id ? &*at : nullptr;
}

/// The kernel ignores a list whose mask lets nothing through: the users and groups that it names
/// then have the rights of others, and the owning group has none.
bool isVoid(const PosixList& list) {
    return list.mask == PosixNothing;
}

/// Returns the list as it takes effect, without a mask.
PosixList countingList(PosixList list) {
    if (isVoid(list))
        return {list.owner, PosixNothing, list.others, {}, {}, {}};
    list.owningGroup = list.effective(list.owningGroup);
    for (auto* entries : {&list.users, &list.groups}) {
        for (auto& entry : *entries)
            entry.rights = list.effective(entry.rights);
    }
    list.mask.reset();
    return list;
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
    : entries_(entries), list_(ItemList::asRead(entries)) {
    if (!list_)
        return;
    if (!list_->posixAcl()) {
        for (const auto& entry : entries_) {
            if (appliesToItem(*entry))
                rules_.push_back({entry, identityOf(*entry), boxesIn(entry->permissions())});
        }
        return;
    }
    // The entries that are shown do not tell of a mask that lets nothing through.
    stored_ = list_->storedPosixAcl()->access;
    counting_ = countingList(stored_);
    for (const auto& entry : entries_) {
        if (entry->tag() == MVAclTagAllow && appliesToItem(*entry))
            byWhom_.try_emplace({!entry->isAcl(), uuidOfPosixIdentity(identityOf(*entry))}, entry);
    }
}

bool ListedRights::isOwner(const CBPosixIdentity& who) const {
    return list_ && who == CBPosixIdentity{CBPosixUser{list_->item().owner}};
}

bool ListedRights::isForOthers(const Granted& granted) {
    return std::all_of(granted.through.begin(), granted.through.end(), [](const auto& entry) {
        return subjectOfEntry(*entry) == EntrySubject::everyone;
    });
}

bool ListedRights::isVoidFor(const CBPosixIdentity& who) const {
    if (!isVoid(stored_))
        return false;
    const auto* user = std::get_if<CBPosixUser>(&who);
    const auto* group = std::get_if<CBPosixGroup>(&who);
    return (user && named(stored_.users, user->uid)) ||
           (group && named(stored_.groups, group->gid));
}

std::shared_ptr<MVAclEntry> ListedRights::entryFor(const CBPosixIdentity& who, bool isClass) const {
    const auto found = byWhom_.find({isClass, uuidOfPosixIdentity(who)});
    return found == byWhom_.end() ? nullptr : found->second;
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
    const auto& list = counting_;
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
        if (const auto* own = named(list.users, user->uid)) {
            give(who, false, own->rights);
            return granted;
        }
    }
    std::set<std::uint32_t> in(groups.begin(), groups.end());
    if (const auto* group = std::get_if<CBPosixGroup>(&who))
        in.insert(group->gid);
    bool isMember = in.contains(acl.group);
    if (isMember)
        give(CBPosixGroup{acl.group}, true, list.owningGroup);
    // By the groups, as a list may have thousands of entries.
    for (const auto id : in) {
        if (const auto* entry = named(list.groups, id)) {
            isMember = true;
            give(CBPosixGroup{id}, false, entry->rights);
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
    for (const auto& [entry, whose, boxes] : rules_) {
        const auto* group = std::get_if<CBPosixGroup>(&whose);
        const bool bearsOn = whose == who || std::holds_alternative<CBEveryone>(whose) ||
                             (group && contains(groups, group->gid));
        if (!bearsOn)
            continue;
        const auto fresh = boxes & ~decided;
        decided |= fresh;
        if (entry->tag() != MVAclTagAllow || fresh == 0)
            continue;
        granted.boxes |= fresh;
        granted.through.push_back(entry);
    }
    return granted;
}

}  // namespace morvane
