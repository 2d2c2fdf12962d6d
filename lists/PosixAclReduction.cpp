// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>

#include "Memberships.h"
#include "PosixListReduction.h"
#include "PosixStatements.h"

namespace morvane {

namespace {

using Statements = std::vector<PosixStatement>;

/// What is shown of a list, in the form in which it is evaluated.
Statements statementsShownOf(const PosixAcl& acl) {
    Statements shown;
    for (const auto& entry : shownRightsOfPosixAcl(acl))
        shown.push_back({0, entry.who, entry.flat, entry.deny, entry.rights, entry.appliesToItem,
                         entry.appliesToChildren});
    return shown;
}

bool someoneExecutes(const PosixList& list) {
    auto rights = list.owner | list.effective(list.owningGroup) | list.others;
    for (const auto* named : {&list.users, &list.groups}) {
        for (const auto& entry : *named)
            rights = rights | list.counting(entry.rights);
    }
    return (rights & PosixExecute) != PosixNothing;
}

/// On a file that nobody can execute, execution has to be asked for by its own box.
void leaveExecutionOff(Statements& statements, const PosixAclTarget& target) {
    if (target.isDirectory || !target.old || readExecutes(statements, *target.old))
        return;
    for (auto& s : statements) {
        if (s.executesByBundle)
            s.rights = s.rights - PosixExecute;
    }
}

}  // namespace

bool readExecutes(const std::vector<PosixStatement>& statements, const PosixAcl& old) {
    return old.isDirectory || someoneExecutes(old.access) ||
           std::any_of(statements.begin(), statements.end(), [](const PosixStatement& s) {
               return !s.deny && !s.executesByBundle && (s.rights & PosixExecute) != PosixNothing;
           });
}

PosixAclTarget PosixAclTarget::of(const PosixAcl& old,
                                  const std::vector<std::shared_ptr<MVAclEntry>>& entries) {
    auto target = of(old);
    const auto first = std::find_if(entries.begin(), entries.end(),
                                    [](const auto& entry) { return entry->origin() != nullptr; });
    if (first == entries.end())
        return target;
    const auto& told = (*first)->origin()->storedLists();
    if (auto list = posixListOfAttribute(told.list)) {
        target.old->access = *std::move(list);
        target.old->defaults = posixListOfAttribute(told.defaults);
    }
    return target;
}

NSErrorRef errorOfFit(PosixAclFit fit, const NSURL& url) {
    const auto error = [&](int code, const Phrase& text, const Phrase& suggestion) {
        return NSError::errorWithDescription(NSPOSIXErrorDomain, code, text, suggestion,
                                             {{NSURLErrorKey, url}});
    };
    switch (fit) {
        case PosixAclFit::tooManyNames:
            return error(E2BIG,
                         phrase("A list holds at most %1 users and groups, and these entries name "
                                "more.",
                                maxPosixNames),
                         phrase("Nothing was changed. Put users into groups, and name the "
                                "groups."));
        case PosixAclFit::modeOnly:
            return error(
                EOPNOTSUPP,
                phrase("The file system keeps no lists: there are the owner, the owning group and "
                       "everyone, and nothing for what is made inside."),
                phrase("Nothing was changed. Remove the other entries, or move the item to a file "
                       "system with lists."));
        case PosixAclFit::cancelled:
            return NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED, {{NSURLErrorKey, url}});
        case PosixAclFit::fits:
            break;
    }
    return nullptr;
}

PosixAclReduction reduceToPosixAcl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                   const PosixAclTarget& target) {
    auto [statements, losses] =
        posixStatementsOf(entries, target.owner, target.group, target.isDirectory);
    leaveExecutionOff(statements, target);
    const auto shown = target.old ? statementsShownOf(*target.old) : Statements{};
    Memberships memberships(target);
    PosixAclReduction result;
    result.acl = {target.owner, target.group, target.isDirectory, {}, {}};

    PosixListReduction access(PosixPart::access, statements, shown,
                              target.old ? &target.old->access : nullptr, target, memberships);
    PosixListReduction defaults(
        PosixPart::defaults, statements, shown,
        target.old && target.old->defaults ? &*target.old->defaults : nullptr, target, memberships);
    if (!access.collect() || !defaults.collect()) {
        result.fit = PosixAclFit::tooManyNames;
        return result;
    }
    access.decide();
    result.acl.access = access.list(nullptr, entries, losses);
    if (std::any_of(statements.begin(), statements.end(),
                    [](const PosixStatement& s) { return s.children; })) {
        defaults.decide();
        result.acl.defaults = defaults.list(&result.acl.access, entries, losses);
    }
    if (memberships.isCancelled()) {
        result.fit = PosixAclFit::cancelled;
        return result;
    }
    const auto& list = result.acl.access;
    if (target.old && !target.old->hasLists) {
        result.acl.hasLists = false;
        if (list.mask || result.acl.defaults)
            result.fit = PosixAclFit::modeOnly;
    }
    std::stable_sort(losses.begin(), losses.end(),
                     [](const EntryLoss& a, const EntryLoss& b) { return a.entry < b.entry; });
    result.losses = std::move(losses);
    return result;
}

}  // namespace morvane
