// SPDX-License-Identifier: MIT
#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>

#include <algorithm>
#include <utility>
#include <variant>

#include "EntryCopies.h"

namespace morvane {
namespace {

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

/// Nodes are shared by the conversions, so each one gets entries of its own.
Entries copiesOf(const Entries& entries) {
    Entries copies;
    for (const auto& entry : entries)
        copies.push_back(copyOf(*entry));
    return copies;
}

Entries converted(const Entries& entries, bool (MVAclEntry::*convert)()) {
    Entries reached;
    for (const auto& entry : copiesOf(entries)) {
        if ((*entry.*convert)())
            reached.push_back(entry);
    }
    return reached;
}

/// Computes what the entries of a folder become for the items below it.
class Inheritance {
  public:
    Inheritance(const Entries& entries, const PosixAcl& folder) {
        lists_.owner = folder.owner;
        lists_.group = folder.group;
        for (const auto& entry : entries)
            (entry->isAcl() ? trees_ : flats_).push_back(entry);
        for (const auto& entry : flats_) {
            const auto who = identityOf(*entry);
            if (who && std::holds_alternative<CBPosixUser>(*who))
                lists_.owner = std::get<CBPosixUser>(*who).uid;
            else if (who && std::holds_alternative<CBPosixGroup>(*who))
                lists_.group = std::get<CBPosixGroup>(*who).gid;
        }
        for (const auto& own : entriesOfPosixAcl(folder)) {
            if (!own->isAcl() && !hasKind(flats_, *identityOf(*own)))
                flats_.push_back(own);
        }
    }

    InheritedLists run() {
        auto entries = trees_;
        for (auto& level : lists_.levels) {
            const auto files = converted(entries, &MVAclEntry::convertInheritedToFileEntry);
            auto folders = converted(entries, &MVAclEntry::convertInheritedToDirectoryEntry);
            level.executable = reduced(files, false).access;
            level.file = withoutExecution(level.executable);
            const auto folder = reduced(copiesOf(folders), true);
            level.folder = folder.access;
            level.folderDefaults = folder.defaults;
            entries = std::move(folders);
        }
        return std::move(lists_);
    }

  private:
    static std::optional<CBPosixIdentity> identityOf(const MVAclEntry& entry) {
        return entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
    }
    /// Returns whom the entry is for on an item: the creator of an item is its owner.
    std::optional<CBPosixIdentity> identityOnItem(const MVAclEntry& entry) const {
        const auto who = identityOf(entry);
        const auto* creator = who ? std::get_if<CBCreator>(&*who) : nullptr;
        if (!creator)
            return who;
        return creator->isGroup ? CBPosixIdentity{CBPosixGroup{lists_.group}}
                                : CBPosixIdentity{CBPosixUser{lists_.owner}};
    }
    /// Whether one of the entries is for a user, for a group, or for everyone, as `who` is.
    static bool hasKind(const Entries& entries, const CBPosixIdentity& who) {
        return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
            const auto other = identityOf(*entry);
            return other && other->index() == who.index();
        });
    }

    PosixAcl reduced(const Entries& inherited, bool isDirectory) {
        Entries entries;
        for (const auto& entry : inherited) {
            // A POSIX list cannot mark entries as inherited, which is no loss here.
            entry->setInherited(false);
            entries.push_back(entry);
        }
        for (const auto& flat : copiesOf(flats_)) {
            const auto who = identityOf(*flat);
            if (std::none_of(inherited.begin(), inherited.end(),
                             [&](const auto& entry) { return identityOnItem(*entry) == who; }))
                entries.push_back(flat);
        }
        auto result = reduceToPosixAcl(entries, {lists_.owner, lists_.group, isDirectory});
        lists_.losses.insert(result.losses.begin(), result.losses.end());
        if (result.fit != PosixAclFit::fits)
            lists_.fit = result.fit;
        return std::move(result.acl);
    }

    /// Keeps entries that are meant for folders from making a file executable: as in a new file,
    /// the mask holds back what the named users and groups could do.
    static PosixList withoutExecution(PosixList list) {
        for (auto* rights : {&list.owner, &list.owningGroup, &list.others})
            *rights = *rights - PosixExecute;
        if (list.mask) {
            list.mask = *list.mask - PosixExecute;
            // With an empty mask the kernel would treat the named users and groups as others.
            if (list.mask == PosixNothing)
                list.mask = list.others;
        }
        return list;
    }

    Entries trees_;
    Entries flats_;
    InheritedLists lists_;
};

}  // namespace

InheritedLists inheritedPosixLists(const Entries& entries, const PosixAcl& folder) {
    return Inheritance(entries, folder).run();
}

InheritedEntries inheritedEntries(const Entries& entries) {
    InheritedEntries inherited;
    auto reached = entries;
    for (auto& level : inherited) {
        level.file = converted(reached, &MVAclEntry::convertInheritedToFileEntry);
        level.folder = converted(reached, &MVAclEntry::convertInheritedToDirectoryEntry);
        reached = level.folder;
    }
    return inherited;
}

}  // namespace morvane
