// SPDX-License-Identifier: MIT
#include "GivenList.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "ListDifference.h"
#include "PosixListText.h"

namespace morvane {

namespace {

/// The rights that take effect, in a list without the mask that has limited them.
PosixList withoutMask(const PosixList& list) {
    auto left = list;
    left.mask.reset();
    left.owningGroup = list.effective(list.owningGroup);
    for (auto* named : {&left.users, &left.groups}) {
        for (auto& entry : *named)
            entry.rights = list.counting(entry.rights);
    }
    return left;
}

bool isSame(const std::optional<PosixList>& a, const std::optional<PosixList>& b) {
    return a.has_value() == b.has_value() && (!a || withoutMask(*a) == withoutMask(*b));
}

/// The first of the entries that differ, and how many more there are.
Phrase textOf(const std::vector<ListDifference::Entry>& entries) {
    const auto& [given, is] = entries.front();
    auto first =
        !is      ? phrase("%1 has no entry", whoText(*given))
        : !given ? phrase("%1 has an entry", whoText(*is))
        : is->tag() == MVAclTagDeny && storageOf({is}) == MVAclStorage::nfs4
            ? phrase("%1 is denied %2, not %3", whoText(*is), givenLetters(*is),
                     givenLetters(*given))
            : phrase("%1 has %2, not %3", whoText(*is), givenLetters(*is), givenLetters(*given));
    const auto more = entries.size() - 1;
    // TRANSLATORS: "user bob has r--, not rw-, and 2 more"
    return more == 0 ? first
                     : countedPhrase("%2, and %1 more", "%2, and %1 more", more, std::move(first));
}

Phrase differs(const ListDifference& difference) {
    return phrase("the folder would give another list: %1", textOf(difference.entries));
}

}  // namespace

GivenList::GivenList(const EntryList& folder) {
    const auto list = ItemList::asRead(folder);
    if (!list)
        return;
    if (!list->posixAcl()) {
        auto level = inheritedEntries(folder).front();
        if (!level.file.empty() || !level.folder.empty())
            nfs4_ = std::move(level);
    } else if (list->posixAcl()->defaults) {
        posix_ = inheritedPosixLists(folder, *list->posixAcl()).levels.front();
    }
}

Phrase GivenList::differenceOf(const EntryList& item) const {
    const auto list = ItemList::asRead(item);
    if (!list)
        return {};
    return list->posixAcl() ? differenceOfPosix(item, *list->posixAcl()) : differenceOfNfs4(item);
}

Phrase GivenList::differenceOfPosix(const EntryList& item, const PosixAcl& acl) const {
    if (!posix_) {
        const auto own = std::find_if(item.begin(), item.end(),
                                      [](const auto& entry) { return entry->isAcl(); });
        return own == item.end()
                   ? Phrase()
                   : phrase("the folder gives no list, and it has one of its own: %1 has an entry",
                            whoText(**own));
    }
    const auto defaults = acl.isDirectory ? posix_->folderDefaults : std::nullopt;
    const auto differenceFrom = [&](const PosixList& given) -> ListDifference {
        if (isSame(given, acl.access) && isSame(defaults, acl.defaults))
            return {};
        const auto expected =
            entriesOfPosixAcl({acl.owner, acl.group, acl.isDirectory, given, defaults});
        for (const auto& entry : expected)
            entry->setOrigin(item.front()->origin());
        return morvane::differenceOf({"", expected}, {"", item});
    };
    auto difference = differenceFrom(acl.isDirectory          ? posix_->folder
                                     : isExecuted(acl.access) ? posix_->executable
                                                              : posix_->file);
    // The right to execute a file may be the mistake itself, as when its mask was computed anew.
    if (!acl.isDirectory && !difference.entries.empty()) {
        auto other = differenceFrom(posix_->file);
        if (other.entries.size() < difference.entries.size())
            difference = std::move(other);
    }
    return difference.entries.empty() ? Phrase() : differs(difference);
}

Phrase GivenList::differenceOfNfs4(const EntryList& item) const {
    const auto& values = item.front()->origin()->values();
    const auto owner = uuidOfPosixIdentity(CBPosixUser{values.owner});
    const auto group = uuidOfPosixIdentity(CBPosixGroup{values.group});
    EntryList expected;
    if (nfs4_)
        expected = values.isDirectory ? nfs4_->folder : nfs4_->file;
    for (const auto& entry : expected) {
        entry->setOrigin(item.front()->origin());
        entry->setInherited(false);
        // Whoever has made the item owns it.
        if (entry->uuid() == uuidOfPosixIdentity(CBCreator{false}))
            entry->setUuid(owner);
        else if (entry->uuid() == uuidOfPosixIdentity(CBCreator{true}))
            entry->setUuid(group);
    }
    // A server need not store that an entry is inherited.
    for (const auto& entry : item)
        entry->setInherited(false);
    auto difference = morvane::differenceOf({"", expected}, {"", item});
    // The rights of the mode are entries of their own in such a list.
    const auto isOfMode = [&](const ListDifference::Entry& entry) {
        const auto& uuid = entry.after ? entry.after->uuid() : std::nullopt;
        return !entry.before && (!uuid || *uuid == owner || *uuid == group ||
                                 subjectOfEntry(*entry.after) == EntrySubject::everyone);
    };
    std::erase_if(difference.entries, isOfMode);
    return difference.entries.empty() ? Phrase() : differs(difference);
}

}  // namespace morvane
