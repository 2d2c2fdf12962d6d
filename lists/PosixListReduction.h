// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Memberships.h"
#include "PosixStatements.h"

namespace morvane {

/// Which list of an item is meant: its own, or the default list for new items.
enum class PosixPart { access, defaults };

/// Computes one list: call collect(), decide(), then list(). The arguments of the constructor must
/// outlive it.
class PosixListReduction {
  public:
    PosixListReduction(PosixPart part, const std::vector<PosixStatement>& statements,
                       const std::vector<PosixStatement>& shown, const PosixList* old,
                       const PosixAclTarget& target, Memberships& memberships);

    /// Collects the users and groups that the list will name. False if there are more of them than
    /// a list can hold.
    bool collect();

    void decide();

    /// Makes the list. A default list takes those classes from `access` that the entries do not
    /// mention.
    PosixList list(const PosixList* access, const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                   std::vector<EntryLoss>& losses);

  private:
    /// What has been decided about one identity so far, and which statement allowed each right.
    struct Decisions {
        PosixRights allowed = PosixNothing;
        PosixRights denied = PosixNothing;
        std::array<std::size_t, 3> allowedAt{};

        /// Decides those of `rights` that are still undecided, and returns them.
        PosixRights decide(bool deny, PosixRights rights, std::size_t place);
    };

    /// The owner, the owning group or everyone; in a default list, the creator and its group.
    struct BaseClass {
        CBPosixIdentity who;
        Decisions decisions = {};
        bool isSpokenOf = false;
        /// A flat entry decides all of its class: nothing that everyone is allowed comes to it.
        bool isFlat = false;
    };

    /// Whether the item's own list names the owner (or the owning group) in an entry beside its
    /// class, and the statements about that entry are those that were shown. If there are no other
    /// statements about the class, these are about the class: a denial would not hold for it
    /// otherwise.
    bool isKept(const CBPosixIdentity& who, const std::vector<PosixStatement>& shown) const;

    /// The class that a statement is for; null if it is for a named user or group.
    BaseClass* baseOf(const PosixStatement& s);

    static void takeFrom(BaseClass& base, PosixRights rights);

    Decisions& namedDecisions(const CBPosixIdentity& who);

    /// Finds out, for each group that is denied something, which of the owner and the named users
    /// are its members.
    void findMembers();

    void decideForAll(bool deny, PosixRights rights, std::size_t place);

    /// Whether an entry for that user or group stays beside its class.
    bool isBeside(const CBPosixIdentity& who) const;

    void denyMembers(const PosixStatement& s, PosixRights fresh, std::size_t place);

    /// Takes rights that are denied to one group from the other groups, too. A member of several
    /// groups has every right that one of them has, so that a denial for one group has an effect
    /// only if the others do not have the right either. The same goes for the creator of an item,
    /// who will be its owner. Where the stored list is like that already it is left so.
    void takeFromOtherGroups(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                             std::vector<EntryLoss>& losses);

    PosixRights hadBy(std::uint32_t gid) const;

    struct GroupDenial {
        std::size_t place;
        std::uint32_t gid;
        PosixRights rights;
    };

    const PosixPart part_;
    const PosixList* const old_;
    Memberships& memberships_;
    BaseClass owner_;
    BaseClass group_;
    BaseClass everyone_{CBEveryone{}};
    bool keptOwner_ = false;
    bool keptGroup_ = false;
    std::vector<PosixStatement> statements_;
    /// Sorted by id, as in a list.
    std::map<std::uint32_t, Decisions> users_;
    std::map<std::uint32_t, Decisions> groups_;
    std::unordered_map<std::uint32_t, std::vector<Decisions*>> members_;
    std::unordered_map<std::uint32_t, PosixRights> toldMembers_;
    std::unordered_map<std::uint32_t, PosixRights> shownDenials_;
    std::vector<GroupDenial> groupDenials_;
};

}  // namespace morvane
