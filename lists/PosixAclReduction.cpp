#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>

#include "PosixStatements.h"

namespace morvane {

namespace {

using Statements = std::vector<PosixStatement>;

/// No group has this id; it stands for the creator's.
constexpr std::uint32_t noGroup = 0xffffffff;

constexpr std::array allRights{PosixRead, PosixWrite, PosixExecute};

/// What is decided about one identity so far, and by which statement each right was allowed.
struct Decisions {
    PosixRights allowed = PosixNothing;
    PosixRights denied = PosixNothing;
    std::array<std::size_t, allRights.size()> allowedAt{};

    /// Which of `rights` this decides.
    PosixRights decide(bool deny, PosixRights rights, std::size_t place) {
        const auto fresh = rights - (allowed | denied);
        (deny ? denied : allowed) = (deny ? denied : allowed) | fresh;
        for (std::size_t i = 0; !deny && i != allRights.size(); ++i) {
            if ((fresh & allRights[i]) != PosixNothing)
                allowedAt[i] = place;
        }
        return fresh;
    }
};

/// The owner, the owning group or everyone; in a default list, the creator and its group.
struct BaseClass {
    CBPosixIdentity who;
    Decisions decisions = {};
    bool isSpokenOf = false;
    /// A flat entry decides all of its class: nothing that everyone is allowed comes to it.
    bool isFlat = false;
};

/// A user's groups, each user's looked up once.
class Memberships {
  public:
    explicit Memberships(const PosixAclTarget& target) : target_(target) {}

    const std::vector<std::uint32_t>& of(std::uint32_t uid) {
        const auto [found, isNew] = groups_.try_emplace(uid);
        if (isNew && goesOn()) {
            auto& groups = found->second;
            groups =
                target_.groupsOf
                    ? target_.groupsOf(uid)
                    : CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
        }
        return found->second;
    }
    bool isCancelled() const { return cancelled_; }

  private:
    bool goesOn() {
        if (target_.goesOn && !cancelled_)
            cancelled_ = !target_.goesOn();
        return !cancelled_;
    }

    const PosixAclTarget& target_;
    std::unordered_map<std::uint32_t, std::vector<std::uint32_t>> groups_;
    bool cancelled_ = false;
};

/// The item's own list, or what it gives to new items.
enum class Part { access, defaults };

bool concerns(const PosixStatement& s, Part part) {
    return part == Part::access ? s.item : s.children;
}

/// Works out one list.
class ListReduction {
  public:
    ListReduction(Part part, const Statements& statements, const Statements& shown,
                  const PosixList* old, const PosixAclTarget& target, Memberships& memberships)
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
                statements_.back().who =
                    std::get<CBCreator>(s.who).isGroup ? group_.who : owner_.who;
        }
        keptOwner_ = isKept(owner_.who, shown);
        keptGroup_ = isKept(group_.who, shown);
        for (const auto& s : shown) {
            if (const auto gid = groupIdOf(s); gid && s.deny && concerns(s, part))
                shownDenials_[*gid] = shownDenials_[*gid] | s.rights;
        }
    }

    /// False if the list holds fewer users and groups.
    bool collect() {
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

    void decide() {
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

    /// `access` is what a default list takes the classes from that it does not speak of.
    PosixList list(const PosixList* access, const std::vector<std::shared_ptr<MVAclEntry>>& entries,
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
        return masked(std::move(list));
    }

  private:
    static bool isCreator(const CBPosixIdentity& who) {
        return std::holds_alternative<CBCreator>(who);
    }
    static CBPosixIdentity ownerOf(Part part, const PosixAclTarget& target) {
        return part == Part::access ? CBPosixIdentity{CBPosixUser{target.owner}}
                                    : CBPosixIdentity{CBCreator{false}};
    }
    static CBPosixIdentity groupOf(Part part, const PosixAclTarget& target) {
        return part == Part::access ? CBPosixIdentity{CBPosixGroup{target.group}}
                                    : CBPosixIdentity{CBCreator{true}};
    }

    /// Whether the item's own list names the owner (the owning group) besides its class, and what
    /// is said of that is what was shown. Where nothing else is said of the class, it is said of
    /// that: a denial would not hold for the class otherwise.
    bool isKept(const CBPosixIdentity& who, const Statements& shown) const {
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

    /// The class that a statement is for; null if it is for a named user or group.
    BaseClass* baseOf(const PosixStatement& s) {
        if (s.who == everyone_.who)
            return &everyone_;
        if (s.who == owner_.who && (s.flat || !keptOwner_))
            return &owner_;
        if (s.who == group_.who && (s.flat || !keptGroup_))
            return &group_;
        return nullptr;
    }

    static void takeFrom(BaseClass& base, PosixRights rights) {
        if (base.isSpokenOf)
            return;
        auto& decisions = base.decisions;
        decisions.allowed = rights - decisions.denied;
        decisions.allowedAt.fill(std::numeric_limits<std::size_t>::max());
    }

    Decisions& namedDecisions(const CBPosixIdentity& who) {
        const auto* user = std::get_if<CBPosixUser>(&who);
        return user ? users_[user->uid] : groups_[std::get<CBPosixGroup>(who).gid];
    }

    static std::optional<std::uint32_t> groupIdOf(const PosixStatement& s) {
        if (const auto* group = std::get_if<CBPosixGroup>(&s.who))
            return group->gid;
        const auto* creator = std::get_if<CBCreator>(&s.who);
        return creator && creator->isGroup ? std::optional(noGroup) : std::nullopt;
    }

    /// Of each group that is denied something, who of the owner and the named users is in it.
    void findMembers() {
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
        for (auto& [uid, decisions] : users_)
            add(uid, decisions);
    }

    void decideForAll(bool deny, PosixRights rights, std::size_t place) {
        if (rights == PosixNothing)
            return;
        for (auto* base : {&owner_, &group_}) {
            if (deny || !base->isFlat)
                base->decisions.decide(deny, rights, place);
        }
        // Whoever has a class is no other: what everyone is allowed comes to it there.
        for (auto& [uid, decisions] : users_) {
            if (!isBeside(CBPosixUser{uid}))
                decisions.decide(deny, rights, place);
        }
        for (auto& [gid, decisions] : groups_) {
            if (deny || !isBeside(CBPosixGroup{gid}))
                decisions.decide(deny, rights, place);
        }
    }

    /// Whether an entry for that user or group stays beside its class.
    bool isBeside(const CBPosixIdentity& who) const {
        return (keptOwner_ && who == owner_.who) || (keptGroup_ && who == group_.who);
    }

    void denyMembers(const PosixStatement& s, PosixRights fresh, std::size_t place) {
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

    /// A member of several groups has what any of them has: a denial for one holds against the
    /// others only if they do not have it either. Likewise for whoever will make an item, and be
    /// its owner. What was so already stays so.
    void takeFromOtherGroups(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                             std::vector<EntryLoss>& losses) {
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
            const auto lose = [&](PosixRights rights, const char* whom) {
                const auto number = statements_[denial.place].number;
                if (rights != PosixNothing)
                    losses.push_back(makeLoss(
                        number, *entries[number], EntryLossReason::members, "",
                        "the denial of " + rightsText(rights) +
                            (part_ == Part::defaults ? " in new items to " : " to ") + whom));
            };
            lose(escaped, "members of other groups that are allowed it");
            if (part_ == Part::defaults)
                lose(takeFrom(maker), "the member who makes them");
        }
    }

    PosixRights hadBy(std::uint32_t gid) const {
        if (!old_)
            return PosixNothing;
        const auto found =
            std::lower_bound(old_->groups.begin(), old_->groups.end(), PosixNamedRights{gid, {}});
        return found != old_->groups.end() && found->id == gid ? old_->counting(found->rights)
                                                               : PosixNothing;
    }

    static std::string rightsText(PosixRights rights) {
        std::string text;
        for (const auto& [right, name] :
             {std::pair{PosixRead, "read"}, {PosixWrite, "write"}, {PosixExecute, "execute"}}) {
            if ((rights & right) != PosixNothing)
                text += (text.empty() ? "" : ", ") + std::string(name);
        }
        return text;
    }

    /// `wanted`, whose entries are what shall count, with a mask, and with what the old one holds
    /// back.
    PosixList masked(PosixList wanted) const {
        if (old_) {
            // What the mask limits is as it was: so it stays, the mask and what it holds back.
            PosixList kept = wanted;
            kept.mask = old_->mask;
            kept.owningGroup = old_->owningGroup;
            kept.users = old_->users;
            kept.groups = old_->groups;
            if (countsAs(kept, wanted))
                return kept;
        }
        PosixRights mask = wanted.owningGroup;
        for (const auto* named : {&wanted.users, &wanted.groups}) {
            for (const auto& entry : *named)
                mask = mask | entry.rights;
        }
        // Under a mask of nothing the kernel does not look at the list, and who is denied there has
        // what others have.
        const bool isNamed = !wanted.users.empty() || !wanted.groups.empty();
        if (isNamed && mask == PosixNothing)
            mask = wanted.others;
        if (old_ && old_->mask) {
            const auto add = [&](PosixRights& rights, PosixRights stored) {
                rights = rights | (stored - mask);
            };
            if (old_->effective(old_->owningGroup) == wanted.owningGroup)
                add(wanted.owningGroup, old_->owningGroup);
            addHeldBack(wanted.users, old_->users, add);
            addHeldBack(wanted.groups, old_->groups, add);
        }
        if (isNamed || (wanted.owningGroup - mask) != PosixNothing)
            wanted.mask = mask;
        return wanted;
    }

    template <class Add>
    void addHeldBack(std::vector<PosixNamedRights>& wanted,
                     const std::vector<PosixNamedRights>& stored, Add&& add) const {
        auto old = stored.begin();
        for (auto& entry : wanted) {
            while (old != stored.end() && old->id < entry.id)
                ++old;
            if (old != stored.end() && old->id == entry.id &&
                old_->counting(old->rights) == entry.rights)
                add(entry.rights, old->rights);
        }
    }

    /// Whether everybody whom the mask limits has in `list` what `wanted` says.
    static bool countsAs(const PosixList& list, const PosixList& wanted) {
        const auto same = [&](const auto& stored, const auto& counting) {
            return std::equal(stored.begin(), stored.end(), counting.begin(), counting.end(),
                              [&](const auto& a, const auto& b) {
                                  return a.id == b.id && list.counting(a.rights) == b.rights;
                              });
        };
        return list.effective(list.owningGroup) == wanted.owningGroup &&
               same(list.users, wanted.users) && same(list.groups, wanted.groups);
    }

    struct GroupDenial {
        std::size_t place;
        std::uint32_t gid;
        PosixRights rights;
    };

    const Part part_;
    const PosixList* const old_;
    Memberships& memberships_;
    BaseClass owner_;
    BaseClass group_;
    BaseClass everyone_{CBEveryone{}};
    bool keptOwner_ = false;
    bool keptGroup_ = false;
    Statements statements_;
    /// By their ids, as a list has them.
    std::map<std::uint32_t, Decisions> users_;
    std::map<std::uint32_t, Decisions> groups_;
    std::unordered_map<std::uint32_t, std::vector<Decisions*>> members_;
    std::unordered_map<std::uint32_t, PosixRights> toldMembers_;
    std::unordered_map<std::uint32_t, PosixRights> shownDenials_;
    std::vector<GroupDenial> groupDenials_;
};

/// What is shown of a list, as the evaluation takes it.
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

/// On a file that nobody can execute, execution wants to be asked for by itself.
void leaveExecutionOff(Statements& statements, const PosixAclTarget& target) {
    if (target.isDirectory || !target.old || someoneExecutes(target.old->access) ||
        std::any_of(statements.begin(), statements.end(), [](const PosixStatement& s) {
            return !s.deny && !s.executesByBundle && (s.rights & PosixExecute) != PosixNothing;
        }))
        return;
    for (auto& s : statements) {
        if (s.executesByBundle)
            s.rights = s.rights - PosixExecute;
    }
}

}  // namespace

NSErrorRef errorOfFit(PosixAclFit fit, const NSURL& url) {
    const auto error = [&](int code, std::string text, const char* suggestion) {
        return NSError::errorWithDomain(
            NSPOSIXErrorDomain, code,
            {{NSURLErrorKey, url},
             {NSLocalizedDescriptionKey, std::move(text)},
             {NSLocalizedRecoverySuggestionErrorKey, std::string(suggestion)}});
    };
    switch (fit) {
        case PosixAclFit::tooManyNames:
            return error(E2BIG,
                         "A list holds at most " + std::to_string(maxPosixNames) +
                             " users and groups, and these entries name more.",
                         "Nothing was changed. Put users into groups, and name the groups.");
        case PosixAclFit::modeOnly:
            return error(
                EOPNOTSUPP,
                "The file system keeps no lists: there are the owner, the owning group and "
                "everyone, and nothing for what is made inside.",
                "Nothing was changed. Remove the other entries, or move the item to a file "
                "system with lists.");
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

    ListReduction access(Part::access, statements, shown,
                         target.old ? &target.old->access : nullptr, target, memberships);
    ListReduction defaults(Part::defaults, statements, shown,
                           target.old && target.old->defaults ? &*target.old->defaults : nullptr,
                           target, memberships);
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
