// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAcl.h>

#include <algorithm>
#include <vector>

namespace morvane {

namespace {

/// Calls `add` for each entry of `wanted` whose rights equal those that its counterpart in `list`
/// grants now.
template <class Add>
void addHeldBack(std::vector<PosixNamedRights>& wanted, const std::vector<PosixNamedRights>& stored,
                 const PosixList& list, Add&& add) {
    auto old = stored.begin();
    for (auto& entry : wanted) {
        while (old != stored.end() && old->id < entry.id)
            ++old;
        if (old != stored.end() && old->id == entry.id &&
            list.counting(old->rights) == entry.rights)
            add(entry.rights, old->rights);
    }
}

/// Whether everybody whom the mask limits has the same rights in `list` as in `wanted`.
bool countsAs(const PosixList& list, const PosixList& wanted) {
    const auto same = [&](const auto& stored, const auto& counting) {
        return std::equal(stored.begin(), stored.end(), counting.begin(), counting.end(),
                          [&](const auto& a, const auto& b) {
                              return a.id == b.id && list.counting(a.rights) == b.rights;
                          });
    };
    return list.effective(list.owningGroup) == wanted.owningGroup &&
           same(list.users, wanted.users) && same(list.groups, wanted.groups);
}

}  // namespace

PosixList withMask(PosixList wanted, const PosixList* old) {
    wanted.mask.reset();
    if (old) {
        // If everything that the mask limits has its old rights, the mask and what it holds back
        // are kept.
        PosixList kept = wanted;
        kept.mask = old->mask;
        kept.owningGroup = old->owningGroup;
        kept.users = old->users;
        kept.groups = old->groups;
        if (countsAs(kept, wanted))
            return kept;
    }
    PosixRights mask = wanted.owningGroup;
    for (const auto* named : {&wanted.users, &wanted.groups}) {
        for (const auto& entry : *named)
            mask = mask | entry.rights;
    }
    // If the mask is empty the kernel ignores the list, and gives whoever is denied there the
    // rights of others.
    const bool isNamed = !wanted.users.empty() || !wanted.groups.empty();
    if (isNamed && mask == PosixNothing)
        mask = wanted.others;
    if (old && old->mask) {
        const auto add = [&](PosixRights& rights, PosixRights stored) {
            rights = rights | (stored - mask);
        };
        if (old->effective(old->owningGroup) == wanted.owningGroup)
            add(wanted.owningGroup, old->owningGroup);
        addHeldBack(wanted.users, old->users, *old, add);
        addHeldBack(wanted.groups, old->groups, *old, add);
    }
    if (isNamed || (wanted.owningGroup - mask) != PosixNothing)
        wanted.mask = mask;
    return wanted;
}

}  // namespace morvane
