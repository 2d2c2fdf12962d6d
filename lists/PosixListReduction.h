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

/// The item's own list, or what it gives to new items.
enum class PosixPart { access, defaults };

/// Works out one list: collect(), decide(), then list(). What it is given must outlive it.
class PosixListReduction {
  public:
    PosixListReduction(PosixPart part, const std::vector<PosixStatement>& statements,
                       const std::vector<PosixStatement>& shown, const PosixList* old,
                       const PosixAclTarget& target, Memberships& memberships);

    /// False if the list holds fewer users and groups.
    bool collect();

    void decide();

    /// `access` is what a default list takes the classes from that it does not speak of.
    PosixList list(const PosixList* access, const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                   std::vector<EntryLoss>& losses);

  private:
    /// What is decided about one identity so far, and by which statement each right was allowed.
    struct Decisions {
        PosixRights allowed = PosixNothing;
        PosixRights denied = PosixNothing;
        std::array<std::size_t, 3> allowedAt{};

        /// Which of `rights` this decides.
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

    /// Whether the item's own list names the owner (the owning group) besides its class, and what
    /// is said of that is what was shown. Where nothing else is said of the class, it is said of
    /// that: a denial would not hold for the class otherwise.
    bool isKept(const CBPosixIdentity& who, const std::vector<PosixStatement>& shown) const;

    /// The class that a statement is for; null if it is for a named user or group.
    BaseClass* baseOf(const PosixStatement& s);

    static void takeFrom(BaseClass& base, PosixRights rights);

    Decisions& namedDecisions(const CBPosixIdentity& who);

    /// Of each group that is denied something, who of the owner and the named users is in it.
    void findMembers();

    void decideForAll(bool deny, PosixRights rights, std::size_t place);

    /// Whether an entry for that user or group stays beside its class.
    bool isBeside(const CBPosixIdentity& who) const;

    void denyMembers(const PosixStatement& s, PosixRights fresh, std::size_t place);

    /// A member of several groups has what any of them has: a denial for one holds against the
    /// others only if they do not have it either. Likewise for whoever will make an item, and be
    /// its owner. What was so already stays so.
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
    /// By their ids, as a list has them.
    std::map<std::uint32_t, Decisions> users_;
    std::map<std::uint32_t, Decisions> groups_;
    std::unordered_map<std::uint32_t, std::vector<Decisions*>> members_;
    std::unordered_map<std::uint32_t, PosixRights> toldMembers_;
    std::unordered_map<std::uint32_t, PosixRights> shownDenials_;
    std::vector<GroupDenial> groupDenials_;
};

}  // namespace morvane
