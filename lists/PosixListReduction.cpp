// SPDX-License-Identifier: MIT
#include "PosixListReduction.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace morvane {

namespace {

using Statements = std::vector<PosixStatement>;
using Part = PosixPart;

/// No group has this id; it stands for the creator's.
constexpr std::uint32_t noGroup = 0xffffffff;

constexpr std::array allRights{PosixRead, PosixWrite, PosixExecute};

bool concerns(const PosixStatement& s, Part part) {
    return part == Part::access ? s.item : s.children;
}

bool isCreator(const CBPosixIdentity& who) {
    return std::holds_alternative<CBCreator>(who);
}

CBPosixIdentity ownerOf(Part part, const PosixAclTarget& target) {
    return part == Part::access ? CBPosixIdentity{CBPosixUser{target.owner}}
                                : CBPosixIdentity{CBCreator{false}};
}

CBPosixIdentity groupOf(Part part, const PosixAclTarget& target) {
    return part == Part::access ? CBPosixIdentity{CBPosixGroup{target.group}}
                                : CBPosixIdentity{CBCreator{true}};
}

std::optional<std::uint32_t> groupIdOf(const PosixStatement& s) {
    if (const auto* group = std::get_if<CBPosixGroup>(&s.who))
        return group->gid;
    const auto* creator = std::get_if<CBCreator>(&s.who);
    return creator && creator->isGroup ? std::optional(noGroup) : std::nullopt;
}

Phrase rightsText(PosixRights rights) {
    std::vector<Phrase> names;
    // TRANSLATORS: Three rights, as in "the denial of read, write to ...".
    for (const auto& [right, name] : {std::pair{PosixRead, translatable("read")},
                                      {PosixWrite, translatable("write")},
                                      {PosixExecute, translatable("execute")}}) {
        if ((rights & right) != PosixNothing)
            names.push_back(phrase(name));
    }
    return Phrase::list(translatable(", "), names);
}

}  // namespace

PosixRights PosixListReduction::Decisions::decide(bool deny, PosixRights rights,
                                                  std::size_t place) {
    const auto fresh = rights - (allowed | denied);
    (deny ? denied : allowed) = (deny ? denied : allowed) | fresh;
    for (std::size_t i = 0; !deny && i != allRights.size(); ++i) {
        if ((fresh & allRights[i]) != PosixNothing)
            allowedAt[i] = place;
    }
    return fresh;
}

PosixListReduction::PosixListReduction(Part part, const Statements& statements,
                                       const Statements& shown, const PosixList* old,
                                       const PosixAclTarget& target, Memberships& memberships)
    : part_(part),
      old_(old),
      memberships_(memberships),
      owner_{ownerOf(part, target)},
      group_{groupOf(part, target)} {
    for (const auto& s : statements) {
        if (!concerns(s, part))
            continue;
        statements_.push_back(s);
        if (part == Part::access && isCreator(s.who))  // the creator of an item is its owner
            statements_.back().who = std::get<CBCreator>(s.who).isGroup ? group_.who : owner_.who;
    }
    keptOwner_ = isKept(owner_.who, shown);
    keptGroup_ = isKept(group_.who, shown);
    for (const auto& s : shown) {
        if (const auto gid = groupIdOf(s); gid && s.deny && concerns(s, part))
            shownDenials_[*gid] = shownDenials_[*gid] | s.rights;
    }
}

bool PosixListReduction::collect() {
    for (const auto& s : statements_) {
        if (auto* base = baseOf(s)) {
            base->isSpokenOf = true;
            base->isFlat = base->isFlat || s.flat;
        } else if (const auto* user = std::get_if<CBPosixUser>(&s.who)) {
            users_.try_emplace(user->uid);
        } else {
            groups_.try_emplace(std::get<CBPosixGroup>(s.who).gid);
        }
    }
    return users_.size() + groups_.size() <= maxPosixNames;
}

void PosixListReduction::decide() {
    findMembers();
    for (std::size_t place = 0; place != statements_.size() && !memberships_.isCancelled();
         ++place) {
        const auto& s = statements_[place];
        auto* const base = baseOf(s);
        auto& own = base ? base->decisions : namedDecisions(s.who);
        const auto fresh = own.decide(s.deny, s.rights, place);
        if (base == &everyone_)
            decideForAll(s.deny, fresh, place);
        else if (s.deny && groupIdOf(s))
            denyMembers(s, fresh, place);
    }
}

PosixList PosixListReduction::list(const PosixList* access,
                                   const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                                   std::vector<EntryLoss>& losses) {
    if (access) {
        takeFrom(owner_, access->owner);
        takeFrom(group_, access->effective(access->owningGroup));
        takeFrom(everyone_, access->others);
    }
    takeFromOtherGroups(entries, losses);
    PosixList list;
    list.owner = owner_.decisions.allowed;
    list.owningGroup = group_.decisions.allowed;
    list.others = everyone_.decisions.allowed;
    for (const auto& [uid, decisions] : users_)
        list.users.push_back({uid, decisions.allowed});
    for (const auto& [gid, decisions] : groups_)
        list.groups.push_back({gid, decisions.allowed});
    return withMask(std::move(list), old_);
}

bool PosixListReduction::isKept(const CBPosixIdentity& who, const Statements& shown) const {
    const auto saidOf = [&](const Statements& all) {
        std::vector<std::pair<bool, PosixRights>> said;
        for (const auto& s : all) {
            if (s.who == who && !s.flat && concerns(s, part_))
                said.emplace_back(s.deny, s.rights);
        }
        return said;
    };
    if (std::none_of(statements_.begin(), statements_.end(),
                     [&](const PosixStatement& s) { return s.flat && s.who == who; }))
        return false;
    const auto said = saidOf(shown);
    return part_ == Part::access && !said.empty() && said == saidOf(statements_);
}

PosixListReduction::BaseClass* PosixListReduction::baseOf(const PosixStatement& s) {
    if (s.who == everyone_.who)
        return &everyone_;
    if (s.who == owner_.who && (s.flat || !keptOwner_))
        return &owner_;
    if (s.who == group_.who && (s.flat || !keptGroup_))
        return &group_;
    return nullptr;
}

void PosixListReduction::takeFrom(BaseClass& base, PosixRights rights) {
    if (base.isSpokenOf)
        return;
    auto& decisions = base.decisions;
    decisions.allowed = rights - decisions.denied;
    decisions.allowedAt.fill(std::numeric_limits<std::size_t>::max());
}

PosixListReduction::Decisions& PosixListReduction::namedDecisions(const CBPosixIdentity& who) {
    const auto* user = std::get_if<CBPosixUser>(&who);
    return user ? users_[user->uid] : groups_[std::get<CBPosixGroup>(who).gid];
}

void PosixListReduction::findMembers() {
    for (const auto& s : statements_) {
        if (const auto gid = groupIdOf(s); gid && s.deny)
            members_.try_emplace(*gid);
    }
    if (members_.empty())
        return;
    const auto add = [&](std::uint32_t uid, Decisions& decisions) {
        for (const auto gid : memberships_.of(uid)) {
            if (const auto found = members_.find(gid); found != members_.end())
                found->second.push_back(&decisions);
        }
    };
    if (const auto* owner = std::get_if<CBPosixUser>(&owner_.who))
        add(owner->uid, owner_.decisions);
    // An entry for the owner beside the owner's class has no effect and is kept as it is; if it
    // were changed, it would be a statement about the class.
    for (auto& [uid, decisions] : users_) {
        if (!isBeside(CBPosixUser{uid}))
            add(uid, decisions);
    }
}

void PosixListReduction::decideForAll(bool deny, PosixRights rights, std::size_t place) {
    if (rights == PosixNothing)
        return;
    for (auto* base : {&owner_, &group_}) {
        if (deny || !base->isFlat)
            base->decisions.decide(deny, rights, place);
    }
    // The owner and the owning group are not others: what everyone is allowed was added to their
    // classes above.
    for (auto& [uid, decisions] : users_) {
        if (!isBeside(CBPosixUser{uid}))
            decisions.decide(deny, rights, place);
    }
    for (auto& [gid, decisions] : groups_) {
        if (deny || !isBeside(CBPosixGroup{gid}))
            decisions.decide(deny, rights, place);
    }
}

bool PosixListReduction::isBeside(const CBPosixIdentity& who) const {
    return (keptOwner_ && who == owner_.who) || (keptGroup_ && who == group_.who);
}

void PosixListReduction::denyMembers(const PosixStatement& s, PosixRights fresh,
                                     std::size_t place) {
    auto& told = toldMembers_[*groupIdOf(s)];
    const auto rights = s.rights - told;
    told = told | s.rights;
    if (rights != PosixNothing) {
        for (auto* member : members_[*groupIdOf(s)])
            member->decide(true, rights, place);
    }
    if (fresh != PosixNothing)
        groupDenials_.push_back({place, *groupIdOf(s), fresh});
}

void PosixListReduction::takeFromOtherGroups(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, std::vector<EntryLoss>& losses) {
    struct Other {
        std::uint32_t gid;
        Decisions* decisions;
        PosixRights had;
        PosixRights wanted;
    };
    std::vector<Other> groups;
    const auto add = [&](std::uint32_t gid, Decisions& decisions, PosixRights had) {
        groups.push_back({gid, &decisions, had, decisions.allowed});
    };
    const auto* owning = std::get_if<CBPosixGroup>(&group_.who);
    add(owning ? owning->gid : noGroup, group_.decisions,
        old_ ? old_->effective(old_->owningGroup) : PosixNothing);
    for (auto& [gid, decisions] : groups_)
        add(gid, decisions, hadBy(gid));
    const Other maker{noGroup, &owner_.decisions, old_ ? old_->owner : PosixNothing,
                      owner_.decisions.allowed};
    for (const auto& denial : groupDenials_) {
        const auto shown = shownDenials_.find(denial.gid);
        const auto wasDenied = shown == shownDenials_.end() ? PosixNothing : shown->second;
        const auto takeFrom = [&](const Other& other) {
            PosixRights taken = PosixNothing;
            for (std::size_t i = 0; i != allRights.size(); ++i) {
                const auto right = allRights[i];
                if ((denial.rights & other.wanted & right) != PosixNothing &&
                    other.decisions->allowedAt[i] > denial.place &&
                    (wasDenied & other.had & right) == PosixNothing)
                    taken = taken | right;
            }
            other.decisions->allowed = other.decisions->allowed - taken;
            return taken;
        };
        PosixRights escaped = PosixNothing;
        for (const auto& group : groups) {
            if (group.gid != denial.gid)
                escaped = escaped | takeFrom(group);
        }
        const auto lose = [&](PosixRights rights, const char* why) {
            const auto number = statements_[denial.place].number;
            if (rights != PosixNothing)
                losses.push_back(makeLoss(number, *entries[number], EntryLossReason::members, "",
                                          phrase(why, rightsText(rights))));
        };
        lose(escaped,
             part_ == Part::defaults
                 ? translatable("the denial of %1 in new items to members of other groups that are "
                                "allowed it")
                 : translatable("the denial of %1 to members of other groups that are allowed it"));
        if (part_ == Part::defaults)
            lose(takeFrom(maker),
                 translatable("the denial of %1 in new items to the member who makes them"));
    }
}

PosixRights PosixListReduction::hadBy(std::uint32_t gid) const {
    if (!old_)
        return PosixNothing;
    const auto found =
        std::lower_bound(old_->groups.begin(), old_->groups.end(), PosixNamedRights{gid, {}});
    return found != old_->groups.end() && found->id == gid ? old_->counting(found->rights)
                                                           : PosixNothing;
}

}  // namespace morvane
