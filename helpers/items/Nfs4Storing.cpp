// SPDX-License-Identifier: MIT
#include "Nfs4Storing.h"

#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <variant>

namespace morvane {
namespace {

using Boxes = std::uint32_t;

bool userIsInGroup(std::uint32_t uid, std::uint32_t gid) {
    const auto groups =
        CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(uid);
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

/// Whether nobody can be both identities, of which the first one is denied.
bool areOthers(const Nfs4Entry& denied, const Nfs4Entry& allowed, const Nfs4Target& target,
               const Nfs4Names& names) {
    const auto first = identityOfNfs4Entry(denied, target, names);
    const auto second = identityOfNfs4Entry(allowed, target, names);
    const auto* user = second ? std::get_if<CBPosixUser>(&*second) : nullptr;
    if (!first || !user)
        return false;
    if (const auto* other = std::get_if<CBPosixUser>(&*first))
        return other->uid != user->uid;
    const auto* group = std::get_if<CBPosixGroup>(&*first);
    return group && !userIsInGroup(user->uid, group->gid);
}

/// The permissions that everybody has whatever a list says, and the owner's, which are a few more.
constexpr Boxes alwaysAllowed = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
constexpr Boxes alwaysAllowedToOwner = alwaysAllowed | ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY;
/// The permissions that a mode does not distinguish from reading and writing.
constexpr Boxes partsOfGroups =
    ACL_READ_EXTATTRIBUTES | ACL_WRITE_EXTATTRIBUTES | ACL_DELETE | ACL_WRITE_ATTRIBUTES;

/// The text for a server that ignores a part of a list.
constexpr std::size_t maxDifferencesTold = 64;

/// Where an entry counts: in the item itself, or in what is below it.
struct Scope {
    const char* notStored;
    const char* granted;
    std::uint32_t with;
    std::uint32_t without;
};
constexpr Scope scopes[] = {
    {translatable("not stored"), translatable("granted, which was not asked for"), 0,
     Nfs4InheritOnly},
    {translatable("not stored in child files"),
     translatable("granted in child files, which was not asked for"), Nfs4FileInherit, 0},
    {translatable("not stored in child folders"),
     translatable("granted in child folders, which was not asked for"), Nfs4FolderInherit, 0},
    {translatable("not stored in all descendants"),
     translatable("granted in all descendants, which was not asked for"), Nfs4FolderInherit,
     Nfs4NoPropagate}};

struct Rule {
    NSUUID who;
    Phrase name;
    bool deny = false;
    Boxes boxes = 0;
    std::uint32_t flags = 0;

    bool countsIn(const Scope& scope) const {
        return (flags & scope.with) == scope.with && (flags & scope.without) == 0;
    }
};

struct Decision {
    Boxes allowed = 0;
    Boxes denied = 0;

    /// The first entry that mentions a box decides.
    void decide(bool deny, Boxes boxes) {
        (deny ? denied : allowed) |= boxes & ~(allowed | denied);
    }
};

class Rules {
  public:
    Rules(const Nfs4Acl& acl, const Nfs4Target& target, const Nfs4Names& names) {
        const auto shown = entriesOfNfs4Acl(acl, target, names);
        std::size_t next = 0;
        for (const auto& entry : acl.entries) {
            if (entry.type > Nfs4Deny)
                continue;
            const auto& as = *shown[next++];
            rules_.push_back({as.uuid().value_or(everyone), identityText(as),
                              entry.type == Nfs4Deny, boxesOfNfs4Mask(entry.mask),
                              target.isDirectory ? entry.flags : 0});
        }
    }

    Decision decisionOn(const NSUUID& who, const Scope& scope) const {
        Decision decision;
        for (const auto& rule : rules_) {
            if (rule.countsIn(scope) && (rule.who == who || rule.who == everyone))
                decision.decide(rule.deny, rule.boxes);
        }
        return decision;
    }

    /// The boxes of `rule` that it has by themselves, not as a part of a group.
    static Boxes chosen(const Rule& rule, bool isDirectory) {
        Boxes parts = 0;
        for (const acl_perm_group* group = acl_perms; group->name; ++group) {
            Boxes all = 0;
            for (const acl_perm_entry* row = group->perms; row->name; ++row) {
                if ((row->kinds & (isDirectory ? ACL_KIND_FOLDERS : ACL_KIND_FILES)) != 0)
                    all |= row->perm;
            }
            if ((rule.boxes & all) == all)
                parts |= all & partsOfGroups;
        }
        return rule.boxes & ~parts;
    }

    const std::vector<Rule>& all() const { return rules_; }

    static inline const NSUUID everyone = uuidOfPosixIdentity(CBEveryone{});

  private:
    std::vector<Rule> rules_;
};

std::vector<Phrase> namesOf(Boxes boxes, bool isDirectory) {
    std::vector<Phrase> names;
    for (const acl_perm_group* group = acl_perms; group->name; ++group) {
        for (const acl_perm_entry* row = group->perms; row->name; ++row) {
            if ((row->kinds & (isDirectory ? ACL_KIND_FOLDERS : ACL_KIND_FILES)) != 0 &&
                (row->perm & boxes) != 0)
                names.push_back(Phrase::inTable("ACL", row->name));
        }
    }
    return names;
}

/// Compares two lists for one identity after the other.
class Comparison {
  public:
    Comparison(const Rules& wanted, const Rules& stored, const Nfs4Target& target)
        : wanted_(wanted),
          stored_(stored),
          isDirectory_(target.isDirectory),
          owner_(uuidOfPosixIdentity(CBPosixUser{target.owner})) {}

    std::vector<EntryLoss> run() {
        std::vector<std::pair<NSUUID, Phrase>> all{
            {Rules::everyone, phrase(translatable("everyone"))}};
        for (const auto* rules : {&wanted_, &stored_}) {
            for (const auto& rule : rules->all()) {
                if (std::none_of(all.begin(), all.end(),
                                 [&](const auto& known) { return known.first == rule.who; }))
                    all.emplace_back(rule.who, rule.name);
            }
        }
        for (const auto& scope : scopes) {
            if (isDirectory_ || &scope == scopes) {
                ofEveryone_ = {};
                for (const auto& [who, name] : all)
                    compare(who, name, scope);
            }
        }
        return std::move(found_);
    }

  private:
    struct Difference {
        Boxes missing = 0;
        Boxes granted = 0;
    };

    void compare(const NSUUID& who, const Phrase& name, const Scope& scope) {
        const auto want = wanted_.decisionOn(who, scope);
        const auto have = stored_.decisionOn(who, scope);
        Difference now{want.allowed & ~have.allowed, have.allowed & ~want.allowed};
        Boxes told = 0;
        Boxes own = 0;
        for (const auto& rule : wanted_.all()) {
            if (rule.who != who || rule.deny || !rule.countsIn(scope))
                continue;
            told |= Rules::chosen(rule, isDirectory_);
            own |= rule.boxes;
        }
        // What everyone has lost is told once.
        told |= ~own & ~ofEveryone_.missing;
        const auto tell = [&](bool deny, Boxes boxes, const char* why) {
            for (auto& box : namesOf(boxes, isDirectory_))
                found_.push_back({entryFor(who, deny), EntryLossReason::stored, std::move(box),
                                  deny ? phrase("deny %1", name) : phrase("allow %1", name),
                                  phrase(why)});
        };
        tell(false, now.missing & told, scope.notStored);
        tell(true, now.granted & want.denied & ~ofEveryone_.granted, scope.notStored);
        tell(false,
             now.granted & ~want.denied & ~ofEveryone_.granted &
                 ~(who == owner_ ? alwaysAllowedToOwner : alwaysAllowed),
             scope.granted);
        if (who == Rules::everyone)
            ofEveryone_ = now;
    }

    /// The first entry of what was to be written that is for `who`, one of that kind if there is.
    std::size_t entryFor(const NSUUID& who, bool deny) const {
        const auto& all = wanted_.all();
        auto found = std::find_if(all.begin(), all.end(), [&](const Rule& rule) {
            return rule.who == who && rule.deny == deny;
        });
        if (found == all.end())
            found = std::find_if(all.begin(), all.end(),
                                 [&](const Rule& rule) { return rule.who == who; });
        return static_cast<std::size_t>(found - all.begin());
    }

    const Rules& wanted_;
    const Rules& stored_;
    const bool isDirectory_;
    const NSUUID owner_;
    Difference ofEveryone_;
    std::vector<EntryLoss> found_;
};

}  // namespace

Nfs4Acl withOthersAllowedFirst(const Nfs4Acl& acl, const Nfs4Acl& old, const Nfs4Target& target,
                               const Nfs4Names& names) {
    auto result = acl;
    auto& list = result.entries;
    const auto isNew = [&](const Nfs4Entry& entry) {
        return std::find(old.entries.begin(), old.entries.end(), entry) == old.entries.end();
    };
    const auto begin = list.begin();
    for (auto denial = begin; denial != list.end(); ++denial) {
        if (denial->type != Nfs4Deny || !isNew(*denial))
            continue;
        for (auto allowed = denial + 1; allowed != list.end(); ++allowed) {
            // Two that allow may change places, and so may a denial and one that is for others.
            const bool mayPass =
                allowed->type == Nfs4Allow &&
                std::all_of(denial, allowed, [&](const Nfs4Entry& passed) {
                    return passed.type != Nfs4Deny || areOthers(passed, *allowed, target, names);
                });
            if (!mayPass)
                continue;
            std::rotate(denial, allowed, allowed + 1);
            ++denial;
        }
    }
    return result;
}

Nfs4Acl withRightsOfFolder(const Nfs4Acl& acl, const Nfs4Acl& folder, bool isDirectory) {
    auto result = acl;
    const auto isOfItem = [](const Nfs4Entry& entry) {
        return entry.type <= Nfs4Deny && (entry.flags & Nfs4InheritOnly) == 0;
    };
    for (const std::string who : {nfs4Owner, nfs4OwningGroup, nfs4Everyone}) {
        if (std::any_of(acl.entries.begin(), acl.entries.end(), [&](const Nfs4Entry& entry) {
                return entry.who == who && isOfItem(entry);
            }))
            continue;
        Decision has;
        for (const auto& entry : folder.entries) {
            if (isOfItem(entry) && (entry.who == who || entry.who == nfs4Everyone))
                has.decide(entry.type == Nfs4Deny, boxesOfNfs4Mask(entry.mask));
        }
        Boxes boxes = who == nfs4Owner ? alwaysAllowedToOwner : alwaysAllowed;
        boxes |= has.allowed & (ACL_READ_DATA | ACL_SEARCH);
        constexpr Boxes write = ACL_WRITE_DATA | ACL_APPEND_DATA;
        if ((has.allowed & write) == write)
            boxes |= write | (isDirectory ? ACL_DELETE_CHILD : 0);
        constexpr std::uint32_t synchronize = 0x100000;
        result.entries.push_back({Nfs4Allow, 0, nfs4MaskOfBoxes(boxes) | synchronize, who});
    }
    return result;
}

std::optional<Nfs4Acl> withOtherNames(const Nfs4Acl& acl, const Nfs4Acl& old,
                                      const Nfs4Target& target, const Nfs4Names& names,
                                      const std::string& domain) {
    auto result = acl;
    bool changed = false;
    for (auto& entry : result.entries) {
        const auto identity = identityOfNfs4Entry(entry, target, names);
        const bool isOld = std::any_of(old.entries.begin(), old.entries.end(),
                                       [&](const Nfs4Entry& o) { return o.who == entry.who; });
        if (isOld || !identity || entry.who == nfs4Owner || entry.who == nfs4OwningGroup ||
            entry.who == nfs4Everyone)
            continue;
        const auto* user = std::get_if<CBPosixUser>(&*identity);
        const auto* group = std::get_if<CBPosixGroup>(&*identity);
        if (!idOfNfs4Who(entry.who))
            entry.who = std::to_string(user ? user->uid : group->gid);
        else if (const auto name = names.nameOf(*identity); name && !domain.empty())
            entry.who = *name + '@' + domain;
        else
            continue;
        changed = true;
    }
    return changed ? std::optional(std::move(result)) : std::nullopt;
}

std::vector<EntryLoss> lostInStoring(const Nfs4Acl& wanted, const Nfs4Acl& stored,
                                     const Nfs4Target& target, const Nfs4Names& names) {
    return Comparison(Rules(wanted, target, names), Rules(stored, target, names), target).run();
}

std::vector<Phrase> textsOfStoring(const std::vector<EntryLoss>& losses) {
    std::vector<Phrase> texts;
    for (auto loss = losses.begin(); loss != losses.end();) {
        const auto end = std::find_if(loss, losses.end(), [&](const EntryLoss& other) {
            return other.who != loss->who || other.why != loss->why;
        });
        std::vector<Phrase> boxes;
        for (auto same = loss; same != end; ++same)
            boxes.push_back(phrase("\"%1\"", same->box));
        // TRANSLATORS: %1 is "allow user bob", %2 one or several boxes, %3 what became of them.
        texts.push_back(
            phrase("%1: %2: %3", loss->who, Phrase::list(translatable(", "), boxes), loss->why));
        loss = end;
    }
    return texts;
}

Phrase textOfStoring(const std::vector<EntryLoss>& losses) {
    auto texts = textsOfStoring(losses);
    const bool isAll = texts.size() <= maxDifferencesTold;
    texts.resize(std::min(texts.size(), maxDifferencesTold));
    const auto list = Phrase::list(translatable("; "), texts);
    return isAll ? list : phrase("%1; and more", list);
}

}  // namespace morvane
