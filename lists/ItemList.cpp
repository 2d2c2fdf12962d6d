// SPDX-License-Identifier: MIT
#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <cerrno>
#include <utility>
#include <variant>

#include "EntryCopies.h"
#include "PosixStatements.h"

namespace morvane {

namespace {

/// Returns what an allow/deny list cannot hold. The list names with a number whomever it does not
/// name yet.
std::vector<EntryLoss> nfs4Losses(const ItemList::Entries& entries, const MVAclOrigin::Values& item,
                                  const std::vector<NSUUID>& known) {
    static const Nfs4Names nobody{
        [](const std::string&, bool) -> std::optional<CBPosixIdentity> { return std::nullopt; },
        [](const CBPosixIdentity&) -> std::optional<std::string> { return std::nullopt; }};
    auto losses =
        nfs4AclOfEntries(entries, {}, {item.owner, item.group, item.isDirectory}, nobody).losses;
    std::erase_if(losses, [&](const EntryLoss& loss) {
        const auto& uuid = entries[loss.entry]->uuid();
        return loss.reason == EntryLossReason::nobody && uuid &&
               std::find(known.begin(), known.end(), *uuid) != known.end();
    });
    return losses;
}

Phrase baseOnly() {
    return phrase(
        "the file system keeps no lists: there are only the owner, the owning group and everyone");
}

Phrase nothingInherited() {
    return phrase("the file system keeps no lists, and nothing is inherited");
}

/// Rebuilds the list from the entries that show it, without what its mask holds back: the reverse
/// of entriesOfPosixAcl().
PosixAcl posixAclShownBy(const ItemList::Entries& entries, const MVAclOrigin::Values& item) {
    PosixAcl acl{item.owner, item.group, item.isDirectory, {}, {}};
    const auto give = [](PosixRights& to, const PosixStatement& s) {
        to = to | (s.deny ? PosixNothing : s.rights);
    };
    const auto giveNamed = [&](std::vector<PosixNamedRights>& named, std::uint32_t id,
                               const PosixStatement& s) {
        const auto place = std::lower_bound(named.begin(), named.end(), PosixNamedRights{id, {}});
        const bool isNew = place == named.end() || place->id != id;
        give((isNew ? *named.insert(place, {id, PosixNothing}) : *place).rights, s);
    };
    const auto take = [&](PosixList& list, const PosixStatement& s) {
        const auto* user = std::get_if<CBPosixUser>(&s.who);
        const auto* group = std::get_if<CBPosixGroup>(&s.who);
        const auto* creator = std::get_if<CBCreator>(&s.who);
        if (user && !s.flat)
            giveNamed(list.users, user->uid, s);
        else if (group && !s.flat)
            giveNamed(list.groups, group->gid, s);
        else if (user || (creator && !creator->isGroup))
            give(list.owner, s);
        else if (group || creator)
            give(list.owningGroup, s);
        else
            give(list.others, s);
    };
    for (const auto& s :
         posixStatementsOf(entries, item.owner, item.group, item.isDirectory).statements) {
        if (s.item)
            take(acl.access, s);
        if (s.children)
            take(acl.defaults ? *acl.defaults : acl.defaults.emplace(), s);
    }
    for (auto* list : {&acl.access, acl.defaults ? &*acl.defaults : nullptr}) {
        if (!list || (list->users.empty() && list->groups.empty()))
            continue;
        list->mask = list->owningGroup;
        for (const auto* named : {&list->users, &list->groups}) {
            for (const auto& entry : *named)
                list->mask = *list->mask | entry.rights;
        }
        if (*list->mask == PosixNothing)
            list->mask = list->others;  // under none, the named ones would have what others have
    }
    acl.hasLists = item.storage == MVAclStorage::posix;
    return acl;
}

}  // namespace

std::optional<ItemList> ItemList::asRead(const Entries& entries) {
    const auto first = std::find_if(entries.begin(), entries.end(),
                                    [](const auto& entry) { return entry->origin() != nullptr; });
    if (first == entries.end())
        return std::nullopt;
    ItemList list((*first)->origin());
    const auto& item = list.item();
    if (item.storage == MVAclStorage::nfs4) {
        for (const auto& entry : entries) {
            if (entry->uuid())
                list.known_.push_back(*entry->uuid());
        }
    } else {
        list.posix_ = posixAclShownBy(entries, item);
    }
    return list;
}

std::optional<PosixAcl> ItemList::storedPosixAcl() const {
    auto stored = posix_;
    const auto& told = origin_->storedLists();
    if (auto list = stored ? posixListOfAttribute(told.list) : std::nullopt) {
        stored->access = *std::move(list);
        stored->defaults = posixListOfAttribute(told.defaults);
    }
    return stored;
}

bool ItemList::holdsBox(const MVAclEntry& entry, const NSTreeNode& box) const {
    return whyNotBox(entry, box).empty();
}

Phrase ItemList::whyNotBox(const MVAclEntry& entry, const NSTreeNode& box) const {
    const auto* permission = MVTreeNode::permissionOf(box);
    if (!permission)
        return phrase("an item of this kind has no such box");
    if (!posix_ || !entry.isAcl())
        return {};
    if (!posix_->hasLists && !isOfTheBase(entry))
        return baseOnly();
    const auto probe = copyOf(entry);
    probe->setInherited(false);
    const auto bit = static_cast<std::uint32_t>(permission->permission());
    const auto wanted = posixBoxesWith(bit, posix_->isDirectory);
    const auto& groups = entry.permissions();
    for (std::size_t i = 0; i != groups.size(); ++i) {
        const bool isGroup = groups[i].get() == &box;
        if (i >= permissionGroups) {
            if (!isGroup && groups[i].get() != box.parentNode())
                continue;
            const bool isItemsOwn = !isGroup && bit == ACL_ENTRY_ONLY_INHERIT;
            return posix_->hasLists || isItemsOwn ? Phrase() : nothingInherited();
        }
        for (const auto& node : probe->permissions()[i]->childNodes()) {
            const auto* other = MVTreeNode::permissionOf(*node);
            const bool goesWithIt = box.parentNode() && other &&
                                    (static_cast<std::uint32_t>(other->permission()) & wanted) != 0;
            MVTreeNode::setStateOf(*node, isGroup || goesWithIt ? MVStateOn : MVStateOff);
        }
    }
    return whyNot(probe);
}

bool ItemList::holdsChoice(const MVAclEntry& entry, std::int64_t code) const {
    return whyNotChoice(entry, code).empty();
}

Phrase ItemList::whyNotChoice(const MVAclEntry& entry, std::int64_t code) const {
    const auto& offered = entry.permissionGroups();
    if (code == MVAclGroupCustom)
        return phrase("it is made of single boxes");
    if (std::find(offered.begin(), offered.end(), code) == offered.end())
        return phrase("an entry of this kind has no such choice");
    if (!posix_ || !entry.isAcl())
        return {};
    if (!posix_->hasLists && !isOfTheBase(entry))
        return baseOnly();
    const auto probe = copyOf(entry);
    probe->setInherited(false);
    probe->setPermissionGroup(code);
    return whyNot(probe);
}

Phrase ItemList::whyNotAppliesTo(std::uint32_t on) const {
    constexpr std::uint32_t below =
        ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT;
    if (!posix_ || (on & below) == 0)
        return {};
    if (!posix_->hasLists)
        return nothingInherited();
    return (on & below) == below
               ? Phrase()
               : phrase("a POSIX list applies to everything inside the folder or to nothing");
}

Phrase ItemList::whyNotDenied(const MVAclEntry& entry) const {
    if (!posix_)
        return {};
    if (!entry.isAcl())
        return phrase("an entry of three rights only allows");
    return posix_->hasLists || isOfTheBase(entry) ? Phrase() : baseOnly();
}

Phrase ItemList::whyNot(const std::shared_ptr<MVAclEntry>& probe) const {
    probe->setFoundIdentity(nullptr);  // nobody reads its name, for which a window would wait
    const auto losses =
        posixStatementsOf({probe}, posix_->owner, posix_->group, posix_->isDirectory).losses;
    const auto loss = std::find_if(losses.begin(), losses.end(), [](const EntryLoss& each) {
        return each.reason == EntryLossReason::box || each.reason == EntryLossReason::half ||
               each.reason == EntryLossReason::always || each.reason == EntryLossReason::nobody;
    });
    return loss == losses.end() ? Phrase() : loss->why;
}

bool ItemList::isOfTheBase(const MVAclEntry& entry) const {
    const auto who =
        entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
    return who && (*who == CBPosixIdentity{CBPosixUser{posix_->owner}} ||
                   *who == CBPosixIdentity{CBPosixGroup{posix_->group}} ||
                   *who == CBPosixIdentity{CBEveryone{}});
}

std::shared_ptr<MVAclEntry> ItemList::askingToExecute(
    const std::shared_ptr<MVAclEntry>& entry) const {
    if (!posix_ || posix_->isDirectory || !entry->isAcl() || entry->tag() != MVAclTagAllow ||
        MVTreeNode::stateOf(*entry->permissions().front()) != MVStateOn)
        return entry;
    auto copy = copyOf(*entry);
    copy->setFoundIdentity(entry->identity());  // also where the system does not know it
    for (const auto& node : copy->permissions().front()->childNodes()) {
        const auto* box = MVTreeNode::permissionOf(*node);
        if (box && static_cast<std::uint32_t>(box->permission()) == ACL_READ_ATTRIBUTES)
            MVTreeNode::setStateOf(*node, MVStateOff);
    }
    return copy;
}

bool ItemList::readExecutes(const Entries& entries) const {
    if (!posix_ || morvane::readExecutes({}, *posix_))
        return true;
    return morvane::readExecutes(
        posixStatementsOf(entries, posix_->owner, posix_->group, posix_->isDirectory).statements,
        *posix_);
}

std::vector<EntryLoss> ItemList::losses(const Entries& entries) const {
    return posix_ ? reduceToPosixAcl(entries, PosixAclTarget::of(*posix_, entries)).losses
                  : nfs4Losses(entries, item(), known_);
}

ItemList::Entries ItemList::nearest(const Entries& entries) const {
    Entries result;
    auto origin = origin_;
    if (posix_) {
        const auto target = PosixAclTarget::of(*posix_, entries);
        auto reduced = reduceToPosixAcl(entries, target);
        result = entriesOfPosixAcl(reduced.acl);
        // A list shows a denial for a group if others may do it. Asked for as an entry, that denial
        // also affects members of other groups, so the reduction is repeated until it is stable.
        for (auto next = reduceToPosixAcl(result, target);
             !next.losses.empty() && next.acl != reduced.acl;
             next = reduceToPosixAcl(result, target)) {
            reduced = std::move(next);
            result = entriesOfPosixAcl(reduced.acl);
        }
        const bool isTold = std::any_of(entries.begin(), entries.end(), [](const auto& entry) {
            return entry->origin() && !entry->origin()->storedLists().list.empty();
        });
        if (isTold || !isShownWhole(reduced.acl))
            origin = MVAclOrigin::initWithValues(item(), storedListsOf(reduced.acl));
    } else {
        const auto losses = nfs4Losses(entries, item(), known_);
        for (std::size_t i = 0; i != entries.size(); ++i) {
            if (std::none_of(losses.begin(), losses.end(), [&](const EntryLoss& loss) {
                    return loss.entry == i && loss.box.empty();
                }))
                result.push_back(entries[i]);
        }
    }
    for (const auto& entry : result)
        entry->setOrigin(origin);
    return result;
}

bool ItemList::leavesCreatorWithout(const Entries& entries) const {
    if (posix_ || !item().isDirectory)
        return false;
    bool isInherited = false;
    std::vector<EntryLoss> ignored;
    for (const auto& entry : entries) {
        const auto& groups = entry->permissions();
        if (!entry->isAcl() || groups.size() <= permissionGroups ||
            (boxesOn(*groups[permissionGroups], 0, *entry, ignored) &
             (ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT)) == 0)
            continue;
        isInherited = true;
        const auto who =
            entry->uuid() ? posixIdentityOfUUID(*entry->uuid()) : CBPosixIdentity{CBEveryone{}};
        // In what is inherited, the owner is whoever makes the item.
        const bool concernsCreator = who == CBPosixIdentity{CBPosixUser{item().owner}} ||
                                     who == CBPosixIdentity{CBCreator{false}} ||
                                     who == CBPosixIdentity{CBEveryone{}};
        std::uint32_t on = 0;
        for (std::size_t i = 0; i != permissionGroups; ++i)
            on |= boxesOn(*groups[i], 0, *entry, ignored);
        constexpr std::uint32_t uses =
            ACL_READ_DATA | ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_SEARCH;
        if (entry->tag() == MVAclTagAllow && concernsCreator && (on & uses) != 0)
            return false;
    }
    return isInherited;
}

NSErrorRef ItemList::whyNot(const Entries& entries, bool lossy) const {
    std::vector<EntryLoss> lost;
    if (posix_) {
        auto reduced = reduceToPosixAcl(entries, PosixAclTarget::of(*posix_, entries));
        if (auto error = errorOfFit(reduced.fit, item().url))
            return error;
        lost = std::move(reduced.losses);
    } else {
        lost = nfs4Losses(entries, item(), known_);
    }
    return lossy || lost.empty() ? nullptr : errorOfLosses(lost, entries, item().url);
}

const MVAclOrigin::Values& ItemList::item() const {
    return origin_->values();
}

}  // namespace morvane
