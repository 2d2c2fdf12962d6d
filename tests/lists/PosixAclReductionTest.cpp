#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

namespace morvane {
namespace {

constexpr PosixRights r = PosixRead;
constexpr PosixRights w = PosixWrite;
constexpr PosixRights x = PosixExecute;
constexpr PosixRights none = PosixNothing;
constexpr PosixRights rw = r | w;
constexpr PosixRights rx = r | x;
constexpr PosixRights rwx = r | w | x;

// Ids that the user database does not have, so that entries are named by their UUID alone.
constexpr std::uint32_t owner = 3000001;
constexpr std::uint32_t group = 3000002;
constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t bob = 3000004;
constexpr std::uint32_t staff = 3000005;
constexpr std::uint32_t guests = 3000006;

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

std::vector<std::uint32_t> groupsOf(std::uint32_t uid) {
    return uid == alice ? std::vector{staff} : std::vector<std::uint32_t>{};
}

PosixAclTarget target(bool isDirectory = false) {
    return {owner, group, isDirectory, std::nullopt, groupsOf};
}

/// For a file whose list is `list`.
PosixAclTarget changing(const PosixList& list) {
    return {owner, group, false, PosixAcl{owner, group, false, list, {}}, groupsOf};
}

std::shared_ptr<MVAclEntry> flat(const CBPosixIdentity& who, PosixRights rights) {
    const PosixAcl acl{.owner = owner,
                       .group = group,
                       .isDirectory = false,
                       .access = {rights, rights, rights, {}, {}, {}},
                       .defaults = {}};
    for (const auto& entry : entriesOfPosixAcl(acl)) {
        if (entry->uuid() == uuidOfPosixIdentity(who))
            return entry;
    }
    throw std::logic_error("no flat entry is for this identity");
}

/// An entry whose boxes are exactly `boxes`; for a folder with these flags on as well.
std::shared_ptr<MVAclEntry> tree(std::int32_t tag, const CBPosixIdentity& who, std::uint32_t boxes,
                                 bool isDirectory = false,
                                 std::set<std::uint32_t> applies = {ACL_ENTRY_ONLY_INHERIT}) {
    auto nodes = permissionTree(boxes, isDirectory);
    if (isDirectory) {
        auto flags = MVTreeNode::treeNodeWithRepresentedObject(
            MVAclPermission::initWithName("Applies To", 0x2000, MVStateOff));
        for (const acl_perm_entry* row = acl_flags; row->name; ++row) {
            flags->mutableChildNodes().append(
                MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::initWithName(
                    row->name, static_cast<std::int32_t>(row->perm),
                    applies.contains(row->perm) ? MVStateOn : MVStateOff)));
        }
        nodes.push_back(std::move(flags));
    }
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, std::move(nodes), false);
}

const std::set<std::uint32_t> childrenOnly{ACL_ENTRY_FILE_INHERIT, ACL_ENTRY_DIRECTORY_INHERIT,
                                           ACL_ENTRY_LIMIT_INHERIT};
const std::set<std::uint32_t> everything{ACL_ENTRY_ONLY_INHERIT, ACL_ENTRY_FILE_INHERIT,
                                         ACL_ENTRY_DIRECTORY_INHERIT, ACL_ENTRY_LIMIT_INHERIT};

std::shared_ptr<MVAclEntry> allow(const CBPosixIdentity& who, PosixRights rights) {
    return tree(1, who, boxesOfRights(rights, false, false, false));
}
std::shared_ptr<MVAclEntry> deny(const CBPosixIdentity& who, PosixRights rights) {
    return tree(2, who, boxesOfRights(rights, true, false, false));
}

/// The base of a file that its owner writes and nobody else reads.
Entries base(PosixRights u = rw, PosixRights g = none, PosixRights o = none) {
    return {flat(CBPosixUser{owner}, u), flat(CBPosixGroup{group}, g), flat(CBEveryone{}, o)};
}

Entries operator+(Entries a, const Entries& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

PosixList reduced(const Entries& entries, const PosixAclTarget& whose = target()) {
    const auto result = reduceToPosixAcl(entries, whose);
    EXPECT_EQ(textsOfLosses(result.losses), std::vector<std::string>{});
    return result.acl.access;
}

/// What is lost, without the entry's identity.
std::vector<std::string> losses(const Entries& entries, bool isDirectory = false) {
    std::vector<std::string> texts;
    for (const auto& loss : reduceToPosixAcl(entries, target(isDirectory)).losses)
        texts.push_back("entry " + std::to_string(loss.entry + 1) + ": " + loss.text());
    return texts;
}

using Losses = std::vector<std::string>;

TEST(PosixAclReduction, TheFlatEntriesAreTheBase) {
    EXPECT_EQ(reduced(base(rw, r, x)), (PosixList{rw, r, x, {}, {}, {}}));
}

TEST(PosixAclReduction, AnEmptyListIsNoRightsAtAll) {
    EXPECT_EQ(reduced({}), (PosixList{none, none, none, {}, {}, {}}));
}

TEST(PosixAclReduction, NamedEntriesAreSortedByIdUnderAMaskThatLetsAllThrough) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{bob}, r), allow(CBPosixUser{alice}, rw),
                              allow(CBPosixGroup{guests}, x), allow(CBPosixGroup{staff}, r)} +
                      base()),
              (PosixList{rw, none, none, rwx, {{alice, rw}, {bob, r}}, {{staff, r}, {guests, x}}}));
}

TEST(PosixAclReduction, TheMaskCoversTheOwningGroup) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{alice}, r)} + base(rw, w)).mask, rw);
}

TEST(PosixAclReduction, AMaskOfNothingWouldLetTheDeniedHaveWhatOthersHave) {
    EXPECT_EQ(reduced(Entries{deny(CBPosixUser{bob}, r)} + base(rw, none, r)),
              (PosixList{rw, none, r, r, {{bob, none}}, {}}));
}

TEST(PosixAclReduction, TheFirstDecisionForAnIdentityCounts) {
    EXPECT_EQ(
        reduced(Entries{deny(CBPosixUser{bob}, w), allow(CBPosixUser{bob}, rw)} + base()).users[0],
        (PosixNamedRights{bob, r}));
    EXPECT_EQ(
        reduced(Entries{allow(CBPosixUser{bob}, rw), deny(CBPosixUser{bob}, w)} + base()).users[0],
        (PosixNamedRights{bob, rw}));
}

TEST(PosixAclReduction, AnIdentityHasBesidesWhatEveryoneHas) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{bob}, w)} + base(rw, none, r)).users[0],
              (PosixNamedRights{bob, rw}));
    EXPECT_EQ(reduced(base(rw, none, r) + Entries{allow(CBPosixUser{bob}, w)}).users[0],
              (PosixNamedRights{bob, rw}));
}

TEST(PosixAclReduction, ADenialTakesFromAUserWhatEveryoneHas) {
    EXPECT_EQ(reduced(Entries{deny(CBPosixUser{bob}, r)} + base(rw, none, r)).users[0],
              (PosixNamedRights{bob, none}));
}

TEST(PosixAclReduction, ADenialForEveryoneComesBeforeALaterAllowance) {
    EXPECT_EQ(
        reduced(Entries{deny(CBEveryone{}, w), allow(CBPosixUser{bob}, rw)} + base(r)).users[0],
        (PosixNamedRights{bob, r}));
}

TEST(PosixAclReduction, ADenialForAGroupBearsOnTheNamedUsersInIt) {
    const auto list = reduced(Entries{deny(CBPosixGroup{staff}, w), allow(CBPosixUser{alice}, rw),
                                      allow(CBPosixUser{bob}, rw)} +
                              base());
    EXPECT_EQ(list.users, (std::vector<PosixNamedRights>{{alice, r}, {bob, rw}}));
}

TEST(PosixAclReduction, AnEntryForTheOwnerAGroupOrEveryoneIsThatOfTheBase) {
    EXPECT_EQ(reduced({tree(1, CBPosixUser{owner}, boxesOfRights(rw, false, true, false)),
                       allow(CBPosixGroup{group}, r)}),
              (PosixList{rw, r, none, {}, {}, {}}));
    EXPECT_EQ(reduced({allow(CBEveryone{}, r)}), (PosixList{r, r, r, {}, {}, {}}));
}

TEST(PosixAclReduction, NoUuidIsEveryone) {
    auto entry = allow(CBEveryone{}, x);
    entry->setUuid(std::nullopt);
    EXPECT_EQ(reduced({entry}).others, x);
}

TEST(PosixAclReduction, HalfABundleIsLostAndTheNearestListDoesNotGrantIt) {
    const Entries entries = Entries{tree(1, CBPosixUser{bob},
                                         ACL_READ_ATTRIBUTES | ACL_READ_SECURITY | ACL_READ_DATA |
                                             ACL_WRITE_DATA | ACL_APPEND_DATA)} +
                            base();
    EXPECT_EQ(losses(entries),
              (Losses{"entry 1: \"Read Data\": not without \"Read Extended Attributes\"",
                      "entry 1: \"Write Data\": not without \"Write Extended Attributes\"",
                      "entry 1: \"Append Data\": not without \"Write Extended Attributes\""}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.users[0],
              (PosixNamedRights{bob, none}));
}

TEST(PosixAclReduction, HalfABundleDeniedIsDeniedWholeByTheNearestList) {
    const Entries entries = {tree(2, CBPosixUser{bob}, ACL_WRITE_DATA),
                             allow(CBPosixUser{bob}, rw)};
    EXPECT_EQ(losses(entries), (Losses{"entry 1: \"Write Data\": not without \"Append Data\", "
                                       "\"Write Extended Attributes\""}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.users[0], (PosixNamedRights{bob, r}));
}

struct LostBoxes {
    const char* name;
    std::int32_t tag;
    CBPosixIdentity who;
    std::uint32_t boxes;
    const char* loss;
};

class PosixAclReductionOfBoxes : public testing::TestWithParam<LostBoxes> {};

TEST_P(PosixAclReductionOfBoxes, NamesWhatLinuxCannotHold) {
    const auto& p = GetParam();
    EXPECT_EQ(losses({tree(p.tag, p.who, p.boxes)}), (Losses{p.loss}));
}

constexpr std::uint32_t always = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
INSTANTIATE_TEST_SUITE_P(
    Rows, PosixAclReductionOfBoxes,
    testing::Values(
        LostBoxes{
            "DeleteAllowed", 1, CBPosixUser{bob}, always | ACL_DELETE,
            "entry 1: \"Delete\": who may delete an item is told by the folder that it is in"},
        LostBoxes{
            "DeleteDenied", 2, CBPosixUser{bob}, ACL_DELETE,
            "entry 1: \"Delete\": who may delete an item is told by the folder that it is in"},
        LostBoxes{"ChangeOwner", 1, CBPosixGroup{staff}, always | ACL_CHANGE_OWNER,
                  "entry 1: \"Change Owner\": only root has it"},
        LostBoxes{"AttributesOfOthers", 1, CBPosixUser{bob}, always | ACL_WRITE_ATTRIBUTES,
                  "entry 1: \"Write Attributes\": only the owner has it"},
        LostBoxes{"PermissionsOfOthers", 1, CBEveryone{}, ACL_WRITE_SECURITY,
                  "entry 1: \"Change Permissions\": only the owner has it"},
        LostBoxes{"AdministrationOfOthers", 1, CBPosixGroup{group},
                  ACL_WRITE_SECURITY | ACL_CHANGE_OWNER,
                  "entry 1: \"Administration\": only the owner has it"},
        LostBoxes{"PermissionsDenied", 2, CBPosixUser{bob}, ACL_WRITE_SECURITY,
                  "entry 1: \"Change Permissions\": a POSIX list cannot deny it"},
        LostBoxes{"AlwaysDenied", 2, CBPosixUser{bob}, ACL_READ_ATTRIBUTES,
                  "entry 1: \"Read Attributes\": nobody can be denied it"},
        LostBoxes{"OwnersDenied", 2, CBPosixUser{owner}, ACL_WRITE_SECURITY,
                  "entry 1: \"Change Permissions\": nobody can be denied it"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PosixAclReduction, ADenialForAGroupThatItsMembersEscapeThroughAnotherIsLost) {
    const Entries entries =
        Entries{deny(CBPosixGroup{guests}, w), allow(CBPosixGroup{staff}, rw)} + base();
    EXPECT_EQ(losses(entries), (Losses{"entry 1: the denial of write to members of other groups "
                                       "that are allowed it"}));
    EXPECT_EQ(reduceToPosixAcl(entries, target()).acl.access.groups,
              (std::vector<PosixNamedRights>{{staff, r}, {guests, none}}));
}

TEST(PosixAclReduction, EachDenialThatMembersOfAnotherGroupEscapeIsNamed) {
    EXPECT_EQ(losses(Entries{deny(CBPosixGroup{guests}, w), deny(CBPosixGroup{guests + 1}, rw),
                             allow(CBPosixGroup{staff}, rw)} +
                     base()),
              (Losses{"entry 1: the denial of write to members of other groups that are allowed it",
                      "entry 2: the denial of read, write to members of other groups that are "
                      "allowed it"}));
}

TEST(PosixAclReduction, AnAllowanceInFrontOfADenialForAnotherGroupIsNotTouchedByIt) {
    EXPECT_EQ(reduced(Entries{allow(CBPosixGroup{staff}, rw), deny(CBPosixGroup{guests}, w),
                              allow(CBPosixGroup{guests}, r)} +
                      base(rw, none, rw))
                  .groups,
              (std::vector<PosixNamedRights>{{staff, rw}, {guests, r}}));
}

TEST(PosixAclReduction, WhatAMemberOfAnotherGroupHadInSpiteOfADenialIsNotTakenByAnEdit) {
    // The list that is there says so already, and shows the denial in front.
    const PosixList old{rw, none, none, rw, {}, {{staff, none}, {guests, rw}}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    EXPECT_EQ(reduced(entries, changing(old)), old);
    entries.push_back(allow(CBPosixUser{bob}, r));
    auto wanted = old;
    wanted.users = {{bob, r}};
    EXPECT_EQ(reduced(entries, changing(old)), wanted);
    // A group that had nothing so far would escape anew.
    entries.push_back(allow(CBPosixGroup{guests + 1}, w));
    EXPECT_EQ(reduceToPosixAcl(entries, changing(old)).losses[0].reason, EntryLossReason::members);
}

TEST(PosixAclReduction, AnEntryForAClassOfTheBaseAddsToItsFlatEntry) {
    EXPECT_EQ(reduced(base(r, none, none) + Entries{allow(CBPosixUser{owner}, w),
                                                    allow(CBPosixGroup{group}, x),
                                                    allow(CBEveryone{}, r)}),
              (PosixList{rw, x, r, {}, {}, {}}));
}

TEST(PosixAclReduction, ADenialInFrontTakesFromAFlatEntry) {
    EXPECT_EQ(reduced(Entries{deny(CBEveryone{}, w)} + base(rw, rw, rw)),
              (PosixList{r, r, r, {}, {}, {}}));
    EXPECT_EQ(reduced(Entries{deny(CBPosixUser{owner}, w)} + base(rw, none, rw)),
              (PosixList{r, none, rw, {}, {}, {}}));
}

TEST(PosixAclReduction, ADenialForAGroupInFrontBearsOnTheOwnerInIt) {
    auto whose = target();
    whose.groupsOf = [](std::uint32_t) { return std::vector{staff}; };
    EXPECT_EQ(reduced(Entries{deny(CBPosixGroup{staff}, w)} + base(rw, none, r), whose),
              (PosixList{r, none, r, r, {}, {{staff, r}}}));
}

// What is kept of the list that the item has.

TEST(PosixAclReduction, AnEntryThatTheMaskHoldsBackStaysAsItIsStored) {
    const PosixList old{rw, rw, none, r, {{alice, rw}, {bob, w}}, {{staff, none}}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    EXPECT_EQ(reduced(entries, changing(old)), old);
    // A change that the mask does not limit leaves it alone.
    entries.front() = flat(CBPosixUser{owner}, r);
    EXPECT_EQ(reduced(entries, changing(old)),
              (PosixList{r, rw, none, r, {{alice, rw}, {bob, w}}, {{staff, none}}}));
}

TEST(PosixAclReduction, ANewMaskLetsNothingThroughThatTheOldOneHeldBack) {
    const PosixList old{rw, rwx, none, r, {{alice, rwx}}, {}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    entries.push_back(allow(CBPosixUser{bob}, rw));
    EXPECT_EQ(reduced(entries, changing(old)),
              (PosixList{rw, rx, none, rw, {{alice, rx}, {bob, rw}}, {}}));
}

TEST(PosixAclReduction, AnEntryWithoutRightsIsADenialThatAnEditKeeps) {
    const PosixList old{rw, r, none, r, {{bob, none}}, {}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    entries.push_back(allow(CBPosixUser{alice}, r));
    EXPECT_EQ(reduced(entries, changing(old)),
              (PosixList{rw, r, none, r, {{alice, r}, {bob, none}}, {}}));
}

TEST(PosixAclReduction, AnEntryThatNamesTheOwnerOrTheOwningGroupStaysBesideItsClass) {
    const PosixList old{r, r, none, rw, {{owner, rw}}, {{group, w}}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    entries.push_back(allow(CBPosixUser{bob}, r));
    EXPECT_EQ(reduced(entries, changing(old)),
              (PosixList{r, r, none, rw, {{owner, rw}, {bob, r}}, {{group, w}}}));
}

TEST(PosixAclReduction, AnEntryBesideItsClassGetsNothingThatEveryoneIsAllowed) {
    const PosixList old{r, r, none, r, {}, {{group, r}}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    entries.push_back(allow(CBEveryone{}, w));
    EXPECT_EQ(reduced(entries, changing(old)), (PosixList{r, r, w, r, {}, {{group, r}}}));
}

TEST(PosixAclReduction, AnEntryBesideAClassOfWhichNothingElseIsSaidIsThatOfTheClass) {
    const PosixList old{r, r, rwx, rwx, {}, {{group, none}}};
    auto entries = entriesOfPosixAcl({owner, group, false, old, {}});
    std::erase_if(entries, [](const auto& entry) {
        return !entry->isAcl() && entry->uuid() == uuidOfPosixIdentity(CBPosixGroup{group});
    });
    EXPECT_EQ(reduced(entries, changing(old)).owningGroup, none)
        << "a denial holds against what everyone is allowed";
}

TEST(PosixAclReduction, ADenialForTheCreatorIsOneForTheOwnerThoughAnEntryStandsBesideTheClass) {
    const PosixList old{rw, r, none, rw, {{owner, rw}}, {}};
    auto entries =
        Entries{deny(CBCreator{false}, w)} + entriesOfPosixAcl({owner, group, false, old, {}});
    EXPECT_EQ(reduced(entries, changing(old)).owner, r);
}

// Bundles.

constexpr std::uint32_t readWhole =
    ACL_READ_DATA | ACL_SEARCH | ACL_READ_ATTRIBUTES | ACL_READ_EXTATTRIBUTES | ACL_READ_SECURITY;
constexpr std::uint32_t writeWhole =
    ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_DELETE | ACL_WRITE_ATTRIBUTES | ACL_WRITE_EXTATTRIBUTES;

TEST(PosixAclReduction, AGroupOnAsAWholeIsABundle) {
    EXPECT_EQ(reduced(Entries{tree(1, CBPosixUser{bob}, writeWhole)} + base()).users[0],
              (PosixNamedRights{bob, w}));
    EXPECT_EQ(reduced(Entries{tree(1, CBPosixUser{bob}, readWhole)} + base()).users[0],
              (PosixNamedRights{bob, rx}));
    EXPECT_EQ(reduced(Entries{tree(1, CBPosixUser{owner},
                                   readWhole | writeWhole | ACL_WRITE_SECURITY | ACL_CHANGE_OWNER)})
                  .owner,
              rwx);
}

TEST(PosixAclReduction, AGroupOnAsAWholeThatIsDeniedIsNoBundle) {
    EXPECT_EQ(
        losses({tree(2, CBPosixUser{bob}, writeWhole)}),
        (Losses{"entry 1: \"Delete\": who may delete an item is told by the folder that it is in",
                "entry 1: \"Write Attributes\": a POSIX list cannot deny it"}));
}

TEST(PosixAclReduction, ABoxThatIsOffInAnAllowanceIsNoLoss) {
    EXPECT_EQ(losses({tree(1, CBPosixUser{bob}, 0), tree(1, CBPosixUser{owner}, 0)}), Losses{});
}

TEST(PosixAclReduction, ReadAsAWholeOnAFileThatNobodyExecutesAsksForReadAlone) {
    const PosixList plain{rw, r, none, {}, {}, {}};
    const auto read = tree(1, CBPosixUser{bob}, readWhole);
    EXPECT_EQ(reduced(base(rw, r) + Entries{read}, changing(plain)).users[0],
              (PosixNamedRights{bob, r}));
    // Where somebody may, or will, it asks for both.
    EXPECT_EQ(reduced(base(rwx, r) + Entries{read}, changing(plain)).users[0],
              (PosixNamedRights{bob, rx}));
    EXPECT_EQ(reduced(base(rw, r) + Entries{read}, changing({rw, rx, none, {}, {}, {}})).users[0],
              (PosixNamedRights{bob, rx}));
    EXPECT_EQ(reduced(base(rw, r) + Entries{read, tree(1, CBPosixUser{alice}, ACL_SEARCH)},
                      changing(plain))
                  .users[1],
              (PosixNamedRights{bob, rx}));
}

// What the work costs.

TEST(PosixAclReduction, AUsersGroupsAreLookedUpOnce) {
    auto whose = target();
    std::map<std::uint32_t, int> asked;
    whose.groupsOf = [&](std::uint32_t uid) {
        ++asked[uid];
        return std::vector{staff};
    };
    Entries entries = base();
    for (std::uint32_t i = 0; i != 20; ++i) {
        entries.push_back(deny(CBPosixGroup{5000 + i}, r));
        entries.push_back(allow(CBPosixUser{6000 + i}, r));
    }
    reduceToPosixAcl(entries, whose);
    EXPECT_EQ(asked.size(), 21U) << "the owner and the named users";
    for (const auto& [uid, times] : asked)
        EXPECT_EQ(times, 1) << uid;
}

TEST(PosixAclReduction, NobodyIsLookedUpIfNoGroupIsDenied) {
    auto whose = target();
    whose.groupsOf = [](std::uint32_t) -> std::vector<std::uint32_t> {
        throw std::logic_error("nobody wants to know");
    };
    EXPECT_EQ(reduced(Entries{allow(CBPosixUser{bob}, r)} + base(), whose).users.size(), 1U);
}

TEST(PosixAclReduction, MoreNamesThanAListHoldsAreRefusedBeforeAnybodyIsLookedUp) {
    auto whose = target();
    bool asked = false;
    whose.groupsOf = [&](std::uint32_t) {
        asked = true;
        return std::vector<std::uint32_t>{};
    };
    Entries entries{deny(CBPosixGroup{staff}, r)};
    const auto one = allow(CBPosixUser{bob}, r);
    for (std::uint32_t i = 0; i != maxPosixNames; ++i) {
        entries.push_back(MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixUser{100000 + i}), 1,
                                                   one->permissions(), false));
    }
    EXPECT_EQ(reduceToPosixAcl(entries, whose).fit, PosixAclFit::tooManyNames);
    EXPECT_FALSE(asked);
}

TEST(PosixAclReduction, TheWorkEndsWhenItsClientSaysNo) {
    auto whose = target();
    int asked = 0;
    whose.groupsOf = [&](std::uint32_t) {
        ++asked;
        return std::vector<std::uint32_t>{};
    };
    whose.goesOn = [&] { return asked < 3; };
    Entries entries{deny(CBPosixGroup{staff}, r)};
    for (std::uint32_t i = 0; i != 10; ++i)
        entries.push_back(allow(CBPosixUser{6000 + i}, r));
    EXPECT_EQ(reduceToPosixAcl(entries, whose).fit, PosixAclFit::cancelled);
    EXPECT_EQ(asked, 3);
}

TEST(PosixAclReduction, AFlatEntryOfAnotherUserOrThatDeniesIsLost) {
    auto other = flat(CBPosixUser{owner}, rw);
    other->setUuid(uuidOfPosixIdentity(CBPosixUser{bob}));
    auto denial = flat(CBEveryone{}, r);
    denial->setTag(2);
    const char* const text =
        ": an entry of three rights is the owner's, the owning group's or everyone's, allows, and "
        "has \"Read\", \"Write\" and \"Execute\"";
    EXPECT_EQ(losses({other, denial}),
              (Losses{std::string("entry 1") + text, std::string("entry 2") + text}));
}

TEST(PosixAclReduction, AMarkOfInheritanceAnUnknownTagAndAnUnknownIdentityAreLost) {
    auto inherited = allow(CBPosixUser{bob}, r);
    inherited->setInherited(true);
    auto tagged = allow(CBPosixUser{bob}, r);
    tagged->setTag(3);
    auto nobody = allow(CBPosixUser{bob}, r);
    nobody->setUuid(NSUUID::initWithUUIDString("11111111-2222-3333-4444-555555555555"));
    EXPECT_EQ(
        losses({inherited, tagged, nobody}),
        (Losses{"entry 1: the mark that it is inherited", "entry 2: it neither allows nor denies",
                "entry 3: it is for nobody whom this system knows"}));
}

TEST(PosixAclReduction, ATreeOfAnotherShapeIsLost) {
    auto entry = allow(CBPosixUser{bob}, r);
    entry->setPermissions({entry->permissions()[0]});
    EXPECT_EQ(losses({entry}), (Losses{"entry 1: its boxes are not those of the item's kind"}));
    EXPECT_EQ(losses({allow(CBPosixUser{bob}, r)}, true),
              (Losses{"entry 1: its boxes are not those of the item's kind"}));
}

std::shared_ptr<MVAclEntry> folderAllow(const CBPosixIdentity& who, PosixRights rights,
                                        const std::set<std::uint32_t>& applies) {
    return tree(1, who,
                boxesOfRights(rights, false, who == CBPosixIdentity{CBPosixUser{owner}}, true),
                true, applies);
}

TEST(PosixAclReduction, WhatAppliesToAllChildrenIsTheDefaultList) {
    const auto result = reduceToPosixAcl(Entries{folderAllow(CBPosixUser{bob}, rx, everything),
                                                 folderAllow(CBCreator{false}, rwx, childrenOnly),
                                                 folderAllow(CBCreator{true}, none, childrenOnly),
                                                 folderAllow(CBEveryone{}, r, childrenOnly)} +
                                             base(rwx, r, none),
                                         target(true));
    EXPECT_EQ(textsOfLosses(result.losses), Losses{});
    EXPECT_EQ(result.acl.access, (PosixList{rwx, r, none, rx, {{bob, rx}}, {}}));
    EXPECT_EQ(result.acl.defaults, (PosixList{rwx, r, r, rx, {{bob, rx}}, {}}));
}

TEST(PosixAclReduction, ADefaultListTakesWhatItLacksFromTheItemsOwn) {
    const auto result = reduceToPosixAcl(
        Entries{folderAllow(CBPosixUser{bob}, rx, childrenOnly)} + base(rwx, r, x), target(true));
    EXPECT_EQ(result.acl.defaults, (PosixList{rwx, r, x, rx, {{bob, rx}}, {}}));
    EXPECT_EQ(result.acl.access, (PosixList{rwx, r, x, {}, {}, {}}));
}

TEST(PosixAclReduction, TheOwnerAndTheOwningGroupAreNamedInADefaultList) {
    const auto result = reduceToPosixAcl(
        Entries{
            tree(1, CBPosixUser{owner}, boxesOfRights(rw, false, false, true), true, childrenOnly),
            folderAllow(CBPosixGroup{group}, rwx, childrenOnly)} +
            base(rwx, r, none),
        target(true));
    EXPECT_EQ(textsOfLosses(result.losses), Losses{});
    EXPECT_EQ(result.acl.defaults, (PosixList{rwx, r, none, rwx, {{owner, rw}}, {{group, rwx}}}));
}

TEST(PosixAclReduction, ADenialForEveryoneInsideTakesFromWhatTheDefaultListLacks) {
    const auto result = reduceToPosixAcl(
        Entries{tree(2, CBEveryone{}, boxesOfRights(w, true, false, true), true, childrenOnly),
                folderAllow(CBPosixUser{bob}, r, childrenOnly)} +
            base(rwx, rw, none),
        target(true));
    EXPECT_EQ(result.acl.defaults, (PosixList{rx, r, none, r, {{bob, r}}, {}}));
}

TEST(PosixAclReduction, ADenialForAGroupInsideIsLostForTheMemberWhoMakesAnItem) {
    const Entries entries = Entries{tree(2, CBPosixGroup{guests},
                                         boxesOfRights(w, true, false, true), true, childrenOnly),
                                    folderAllow(CBCreator{false}, rwx, childrenOnly),
                                    folderAllow(CBCreator{true}, r, childrenOnly)} +
                            base(rwx, rx, rwx);
    EXPECT_EQ(losses(entries, true),
              (Losses{"entry 1: the denial of write in new items to the member who makes them"}));
    EXPECT_EQ(reduceToPosixAcl(entries, target(true)).acl.defaults->owner, rx);
    // Behind what the creator is allowed it says nothing of him.
    EXPECT_EQ(
        losses({entries[1], entries[2], entries[0], entries[3], entries[4], entries[5]}, true),
        Losses{});
}

TEST(PosixAclReduction, WithoutAnEntryForChildrenThereIsNoDefaultList) {
    EXPECT_EQ(reduceToPosixAcl(base(), target(true)).acl.defaults, std::nullopt);
}

TEST(PosixAclReduction, InheritanceInPartIsLostAndTheNearestListHasNone) {
    for (const auto& part :
         {std::set<std::uint32_t>{ACL_ENTRY_FILE_INHERIT},
          std::set<std::uint32_t>{ACL_ENTRY_DIRECTORY_INHERIT},
          std::set<std::uint32_t>{ACL_ENTRY_FILE_INHERIT, ACL_ENTRY_DIRECTORY_INHERIT}}) {
        auto applies = part;
        applies.insert(ACL_ENTRY_ONLY_INHERIT);
        const auto result =
            reduceToPosixAcl({folderAllow(CBPosixUser{bob}, r, applies)}, target(true));
        ASSERT_EQ(result.losses.size(), 1U);
        EXPECT_EQ(result.losses[0].reason, EntryLossReason::inheritance);
        EXPECT_EQ(result.losses[0].text(),
                  "that it applies to a part only of the files, folders and descendants inside");
        EXPECT_EQ(result.acl.defaults, std::nullopt);
    }
}

TEST(PosixAclReduction, AnEntryThatAppliesToNothingIsLost) {
    EXPECT_EQ(losses({folderAllow(CBPosixUser{bob}, r, {})}, true),
              (Losses{"entry 1: all of it, as it applies to nothing"}));
}

}  // namespace
}  // namespace morvane
