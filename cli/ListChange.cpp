// SPDX-License-Identifier: MIT
#include "ListChange.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>

#include <algorithm>
#include <utility>

namespace morvane {

namespace {

constexpr std::uint32_t itemAlone = ACL_ENTRY_ONLY_INHERIT;
constexpr std::uint32_t everythingInside =
    ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT;

/// The POSIX list that the entries show; empty for an allow/deny list.
std::optional<PosixAcl> posixAclOf(const ChangedList& list) {
    const auto read = ItemList::asRead(list.entries);
    return read ? read->posixAcl() : std::nullopt;
}

/// Has the list show `entries`. Execution is asked for by name here, unlike with the box of all
/// that reading is, which gives it only where somebody can execute already.
void show(EntryList entries, ChangedList& list) {
    const auto read = ItemList::asRead(list.entries);
    for (auto& entry : entries) {
        if (read)
            entry = read->askingToExecute(entry);
        entry->setOrigin(list.origin);
    }
    list.entries = std::move(entries);
}

void show(const PosixAcl& acl, ChangedList& list) {
    show(entriesOfPosixAcl(acl), list);
}

/// Whether a mask of the text lets less through than an entry that it is for has.
bool holdsBack(const ListText& text) {
    return std::any_of(text.posix.begin(), text.posix.end(), [&](const TextEntry& mask) {
        return mask.who == TextEntry::Who::mask &&
               std::any_of(text.posix.begin(), text.posix.end(), [&](const TextEntry& entry) {
                   return entry.isDefault == mask.isDefault && entry.who != TextEntry::Who::owner &&
                          entry.who != TextEntry::Who::others &&
                          (entry.rights & mask.rights) != entry.rights;
               });
    });
}

/// Whether "X" asks for execution: of a folder, and where somebody can execute.
bool isExecuted(const PosixAcl& acl) {
    const auto& list = acl.access;
    const auto executes = [](const PosixNamedRights& named) {
        return (named.rights & PosixExecute) != PosixNothing;
    };
    return acl.isDirectory ||
           ((list.owner | list.owningGroup | list.others) & PosixExecute) != PosixNothing ||
           std::any_of(list.users.begin(), list.users.end(), executes) ||
           std::any_of(list.groups.begin(), list.groups.end(), executes);
}

std::vector<PosixNamedRights>& namedOf(PosixList& list, TextEntry::Who who) {
    return who == TextEntry::Who::user ? list.users : list.groups;
}

void giveNamed(std::vector<PosixNamedRights>& named, std::uint32_t id, PosixRights rights) {
    const auto place = std::lower_bound(named.begin(), named.end(), PosixNamedRights{id, {}});
    if (place != named.end() && place->id == id)
        place->rights = rights;
    else
        named.insert(place, {id, rights});
}

void limit(PosixList& list, PosixRights mask) {
    list.owningGroup = list.owningGroup & mask;
    for (auto* named : {&list.users, &list.groups}) {
        for (auto& entry : *named)
            entry.rights = entry.rights & mask;
    }
}

/// A list that is no more than the mode has no mask, and one with names has the one that lets all
/// of them through.
void renewMask(PosixList& list) {
    list.mask.reset();
    if (list.users.empty() && list.groups.empty())
        return;
    list.mask = list.owningGroup;
    for (const auto* named : {&list.users, &list.groups}) {
        for (const auto& entry : *named)
            list.mask = *list.mask | entry.rights;
    }
}

/// Whether entries for new items are asked for where none can be; those of an item that was not
/// named are passed over.
bool isForNoFolder(const TextEntry& entry, const ChangedList& list, Problem& problem) {
    if (!entry.isDefault || list.item().isDirectory)
        return false;
    if (!list.isBelow)
        problem = say("only a folder has entries for new items inside");
    return true;
}

Problem setIn(PosixAcl& acl, const TextEntry& entry) {
    if (entry.isDefault && !acl.defaults) {
        // As the kernel would have it: what the folder's own list grants.
        auto& defaults = acl.defaults.emplace();
        defaults.owner = acl.access.owner;
        defaults.owningGroup = acl.access.owningGroup;
        defaults.others = acl.access.others;
    }
    auto& to = entry.isDefault ? *acl.defaults : acl.access;
    const auto rights = rightsFor(entry, isExecuted(acl));
    switch (entry.who) {
        case TextEntry::Who::owner:
            to.owner = rights;
            break;
        case TextEntry::Who::owningGroup:
            to.owningGroup = rights;
            break;
        case TextEntry::Who::others:
            to.others = rights;
            break;
        case TextEntry::Who::mask:
            limit(to, rights);
            break;
        default:
            giveNamed(namedOf(to, entry.who), entry.id, rights);
            break;
    }
    renewMask(to);
    // What a mask lets through is all that entries keep, so there is none that lets more through.
    if (entry.who == TextEntry::Who::mask && to.mask != rights)
        return say("a mask that no entry needs whole is not kept; give the entries their rights");
    return std::nullopt;
}

// The same in an allow/deny list.

CBPosixIdentity identityOf(const TextEntry& entry, const MVAclOrigin::Values& item) {
    switch (entry.who) {
        case TextEntry::Who::owner:
            return entry.isDefault ? CBPosixIdentity{CBCreator{false}} : CBPosixUser{item.owner};
        case TextEntry::Who::owningGroup:
            return entry.isDefault ? CBPosixIdentity{CBCreator{true}} : CBPosixGroup{item.group};
        case TextEntry::Who::user:
            return CBPosixUser{entry.id};
        case TextEntry::Who::group:
            return CBPosixGroup{entry.id};
        default:
            return CBEveryone{};
    }
}

/// Whether `shown` says something of whom `entry` is for: of the item, or of what is inside.
bool isAbout(const MVAclEntry& shown, const TextEntry& entry, const MVAclOrigin::Values& item) {
    if (shown.inherited() || !shown.uuid())
        return false;
    const auto on = static_cast<std::uint32_t>(appliesToCode(shown));
    const bool isInside = (on & ACL_ENTRY_ONLY_INHERIT) == 0;
    return *shown.uuid() == uuidOfPosixIdentity(identityOf(entry, item)) &&
           isInside == entry.isDefault;
}

bool removeFrom(ChangedList& list, const TextEntry& entry) {
    return std::erase_if(list.entries, [&](const auto& shown) {
               return isAbout(*shown, entry, list.item());
           }) != 0;
}

void setInAllowDeny(ChangedList& list, const TextEntry& entry) {
    const auto& item = list.item();
    const auto rights = rightsFor(entry, item.isDirectory);
    const auto place = std::find_if(list.entries.begin(), list.entries.end(),
                                    [&](const auto& e) { return isAbout(*e, entry, item); }) -
                       list.entries.begin();
    removeFrom(list, entry);
    auto permissions = permissionTree(
        boxesOfRights(rights, false, entry.who == TextEntry::Who::owner, item.isDirectory),
        item.isDirectory);
    if (item.isDirectory)
        permissions.push_back(appliesToNode(entry.isDefault ? everythingInside : itemAlone));
    auto made = MVAclEntry::initWithUuid(uuidOfPosixIdentity(identityOf(entry, item)),
                                         MVAclTagAllow, std::move(permissions), false);
    made->setOrigin(list.origin);
    // Where it stood; a new one where it takes nothing from others.
    list.entries.insert(
        list.entries.begin() +
            std::min<std::ptrdiff_t>(place, static_cast<std::ptrdiff_t>(list.entries.size())),
        std::move(made));
}

/// Whether the entry is for the owner, the owning group or everyone, and for the item itself.
bool isOfTheBase(const MVAclEntry& entry, const MVAclOrigin::Values& item) {
    const auto subject = subjectOfEntry(entry);
    const auto is = [&](const CBPosixIdentity& who) {
        return entry.uuid() && *entry.uuid() == uuidOfPosixIdentity(who);
    };
    const bool isBase = subject == EntrySubject::everyone || is(CBPosixUser{item.owner}) ||
                        is(CBPosixGroup{item.group});
    return isBase && (appliesToCode(entry) & ACL_ENTRY_ONLY_INHERIT) != 0;
}

}  // namespace

ListChange settingEntries(std::vector<TextEntry> entries) {
    return [entries = std::move(entries)](ChangedList& list) -> Problem {
        auto acl = posixAclOf(list);
        for (const auto& entry : entries) {
            Problem problem;
            if (isForNoFolder(entry, list, problem)) {
                if (problem)
                    return problem;
            } else if (acl) {
                problem =
                    isOwnersByName(entry, list.item()) ? ownersByName(entry) : setIn(*acl, entry);
                if (problem)
                    return problem;
            } else if (entry.who == TextEntry::Who::mask) {
                return say("an NFSv4 list has no mask");
            } else {
                setInAllowDeny(list, entry);
            }
        }
        if (acl)
            show(*acl, list);
        return std::nullopt;
    };
}

ListChange removingEntries(std::vector<TextEntry> entries) {
    return [entries = std::move(entries)](ChangedList& list) -> Problem {
        auto acl = posixAclOf(list);
        for (const auto& entry : entries) {
            if (acl && entry.who != TextEntry::Who::user && entry.who != TextEntry::Who::group)
                return say(
                    "the entries of the owner, the owning group and others are in every "
                    "list; set their rights to - instead");
            bool isFound = false;
            if (!acl) {
                isFound = removeFrom(list, entry);
            } else if (!entry.isDefault || acl->defaults) {
                auto& from = entry.isDefault ? *acl->defaults : acl->access;
                isFound = std::erase_if(namedOf(from, entry.who), [&](const auto& named) {
                              return named.id == entry.id;
                          }) != 0;
                renewMask(from);
            }
            if (!isFound && !list.isBelow && !list.isOneOfMany)
                return say("the list has no such entry to remove");
        }
        if (acl)
            show(*acl, list);
        return std::nullopt;
    };
}

ListChange clearing() {
    return [](ChangedList& list) -> Problem {
        if (auto acl = posixAclOf(list)) {
            acl->defaults.reset();
            acl->access.users.clear();
            acl->access.groups.clear();
            renewMask(acl->access);
            show(*acl, list);
            return std::nullopt;
        }
        std::erase_if(list.entries,
                      [&](const auto& entry) { return !isOfTheBase(*entry, list.item()); });
        for (const auto& entry : list.entries) {
            entry->setInherited(false);
            setAppliesTo(*entry, ACL_ENTRY_ONLY_INHERIT);
        }
        return std::nullopt;
    };
}

ListChange clearingDefaults() {
    return [](ChangedList& list) -> Problem {
        if (auto acl = posixAclOf(list)) {
            acl->defaults.reset();
            show(*acl, list);
            return std::nullopt;
        }
        std::erase_if(list.entries, [](const auto& entry) {
            return (appliesToCode(*entry) & ACL_ENTRY_ONLY_INHERIT) == 0;
        });
        for (const auto& entry : list.entries) {
            if (!entry->inherited())
                setAppliesTo(*entry, ACL_ENTRY_ONLY_INHERIT);
        }
        return std::nullopt;
    };
}

ListChange replacingBy(ListText text) {
    return [text = std::move(text)](ChangedList& list) -> Problem {
        auto wanted = text;
        const auto& item = list.item();
        if (list.isBelow && !item.isDirectory)
            std::erase_if(wanted.posix, [](const TextEntry& entry) { return entry.isDefault; });
        if (item.storage == MVAclStorage::nfs4 && !wanted.posix.empty()) {
            list.entries.clear();
            for (const auto& entry : wanted.posix) {
                if (entry.who != TextEntry::Who::mask)
                    setInAllowDeny(list, entry);
            }
            return std::nullopt;
        }
        Problem problem;
        auto entries = entriesOfText(wanted, item, problem);
        if (problem)
            return problem;
        list.losesHeldBack = list.losesHeldBack || holdsBack(wanted);
        show(std::move(entries), list);
        return std::nullopt;
    };
}

}  // namespace morvane
