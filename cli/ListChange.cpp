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

/// The POSIX list of the item in two forms.
struct PosixLists {
    /// The list without the rights that masks hold back.
    PosixAcl shown;
    /// The list as it is stored.
    PosixAcl stored;
};

/// Returns nothing for an allow/deny list.
std::optional<PosixLists> posixListsOf(const ChangedList& list) {
    const auto read = ItemList::asRead(list.entries);
    if (!read || !read->posixAcl())
        return std::nullopt;
    return PosixLists{*read->posixAcl(), *read->storedPosixAcl()};
}

/// Makes the entries of exactly this list.
void store(const PosixAcl& acl, ChangedList& list) {
    const auto origin = MVAclOrigin::initWithValues(list.item(), storedListsOf(acl));
    list.entries = entriesOfPosixAcl(acl);
    for (const auto& entry : list.entries)
        entry->setOrigin(origin);
}

/// Makes the entries of a list of another kind, as near as the item can store them. Here execution
/// is asked for by name, unlike with the box "Read" as a whole, which gives it only where somebody
/// can execute.
void storeNearest(EntryList entries, ChangedList& list) {
    const auto read = ItemList::asRead(list.entries);
    const auto origin = MVAclOrigin::initWithValues(list.item());
    for (auto& entry : entries) {
        if (read)
            entry = read->askingToExecute(entry);
        entry->setOrigin(origin);
    }
    list.entries = std::move(entries);
}

/// The list to store so that it shows `shown`, where `old` is stored now: what its masks hold back
/// stays.
PosixAcl keepingHeldBack(PosixAcl shown, const PosixAcl& old) {
    shown.access = withMask(std::move(shown.access), &old.access);
    if (shown.defaults)
        shown.defaults =
            withMask(*std::move(shown.defaults), old.defaults ? &*old.defaults : nullptr);
    return shown;
}

/// Whether "X" asks for execution: of a folder, and where somebody can execute.
bool asksToExecute(const PosixAcl& acl) {
    return acl.isDirectory || isExecuted(acl.access);
}

std::vector<PosixNamedRights>& namedOf(PosixList& list, TextEntry::Who who) {
    return who == TextEntry::Who::user ? list.users : list.groups;
}

/// Whether the entry is for new items inside, which a file does not have. That is a problem only if
/// the file was named itself.
bool isForNoFolder(const TextEntry& entry, const ChangedList& list, Problem& problem) {
    if (!entry.isDefault || list.item().isDirectory)
        return false;
    if (!list.isBelow)
        problem = say("only a folder has entries for new items inside");
    return true;
}

/// Gives the subject of the entry the `rights`, which are those that the entry means for this item.
void setIn(PosixAcl& acl, const TextEntry& entry, PosixRights rights) {
    if (entry.isDefault && !acl.defaults) {
        // The list for new items begins with what the folder's own grants, as setfacl has it.
        auto& defaults = acl.defaults.emplace();
        defaults.owner = acl.access.owner;
        defaults.owningGroup = acl.access.owningGroup;
        defaults.others = acl.access.others;
    }
    give(entry.isDefault ? *acl.defaults : acl.access, entry, rights);
}

/// Sets `entries`. What masks hold back of other entries stays held back. If `entries` set a mask,
/// the list is exactly what they say: the new mask removes no rights from entries, and lets through
/// what the former one has held back.
PosixAcl withEntriesSet(const PosixLists& lists, const std::vector<TextEntry>& entries) {
    const auto all = [&](PosixAcl acl) {
        for (const auto& entry : entries)
            setIn(acl, entry, rightsFor(entry, asksToExecute(lists.shown)));
        return acl;
    };
    const auto exact = all(lists.stored);
    auto acl = keepingHeldBack(all(lists.shown), lists.stored);
    for (const auto& entry : entries) {
        if (entry.who != TextEntry::Who::mask)
            setIn(acl, entry, rightsFor(entry, asksToExecute(lists.shown)));
    }
    for (const auto& entry : entries) {
        if (entry.who == TextEntry::Who::mask && entry.isDefault)
            acl.defaults = exact.defaults;
        else if (entry.who == TextEntry::Who::mask)
            acl.access = exact.access;
    }
    return acl;
}

// The functions below do the same for an allow/deny list.

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

/// Whether `shown` is about the subject of `entry`, and like it applies to the item or to what is
/// inside.
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
    // It keeps its place. A new one comes last, where it does not change what others mean.
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
        auto lists = posixListsOf(list);
        std::vector<TextEntry> inPosix;
        for (const auto& entry : entries) {
            Problem problem;
            if (isForNoFolder(entry, list, problem)) {
                if (problem)
                    return problem;
            } else if (lists) {
                inPosix.push_back(entry);
            } else if (entry.who == TextEntry::Who::mask) {
                return say("an NFSv4 list has no mask");
            } else {
                setInAllowDeny(list, entry);
            }
        }
        if (lists)
            store(withEntriesSet(*lists, inPosix), list);
        return std::nullopt;
    };
}

ListChange removingEntries(std::vector<TextEntry> entries) {
    return [entries = std::move(entries)](ChangedList& list) -> Problem {
        auto lists = posixListsOf(list);
        for (const auto& entry : entries) {
            if (lists && entry.who != TextEntry::Who::user && entry.who != TextEntry::Who::group)
                return say(
                    "the entries of the owner, the owning group and others are in every "
                    "list; set their rights to - instead");
            bool isFound = false;
            if (!lists) {
                isFound = removeFrom(list, entry);
            } else if (auto& acl = lists->shown; !entry.isDefault || acl.defaults) {
                auto& from = entry.isDefault ? *acl.defaults : acl.access;
                isFound = std::erase_if(namedOf(from, entry.who), [&](const auto& named) {
                              return named.id == entry.id;
                          }) != 0;
            }
            if (!isFound && !list.isBelow && !list.isOneOfMany)
                return say("the list has no such entry to remove");
        }
        if (lists)
            store(keepingHeldBack(std::move(lists->shown), lists->stored), list);
        return std::nullopt;
    };
}

ListChange clearing() {
    return [](ChangedList& list) -> Problem {
        if (auto lists = posixListsOf(list)) {
            auto& acl = lists->shown;
            acl.defaults.reset();
            acl.access.users.clear();
            acl.access.groups.clear();
            acl.access.mask.reset();
            store(acl, list);
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
        if (auto lists = posixListsOf(list)) {
            lists->stored.defaults.reset();
            store(lists->stored, list);
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

namespace {

/// What is left of the rights of `entry` under the mask that stands among `entries`.
TextEntry underMask(TextEntry entry, const std::vector<TextEntry>& entries) {
    using Who = TextEntry::Who;
    const auto mask = std::find_if(entries.begin(), entries.end(), [&](const TextEntry& other) {
        return other.who == Who::mask && other.isDefault == entry.isDefault;
    });
    if (mask != entries.end() && entry.who != Who::owner && entry.who != Who::others)
        entry.rights = entry.rights & mask->rights;
    return entry;
}

/// Tells of the first entry that is for nobody whom this system knows.
Problem unknownOf(const std::vector<Nfs4Entry>& entries, const MVAclOrigin::Values& item) {
    const auto names = namesOfThisSystem();
    for (const auto& entry : entries) {
        if (!identityOfNfs4Entry(entry, {item.owner, item.group, item.isDirectory}, names))
            return unknownName(entry.who, (entry.flags & Nfs4IsGroup) != 0);
    }
    return std::nullopt;
}

}  // namespace

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
                    setInAllowDeny(list, underMask(entry, wanted.posix));
            }
            return std::nullopt;
        }
        // The server of an NFSv4 list may know others.
        if (item.storage != MVAclStorage::nfs4 && !list.leavesOutUnknown) {
            if (auto unknown = unknownOf(wanted.nfs4, item))
                return unknown;
        }
        Problem problem;
        auto entries = entriesOfText(wanted, item, problem);
        if (problem)
            return problem;
        if (wanted.nfs4.empty())
            list.entries = std::move(entries);
        else
            storeNearest(std::move(entries), list);
        return std::nullopt;
    };
}

}  // namespace morvane
