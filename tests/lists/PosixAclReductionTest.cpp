// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>

#include "PosixReductionSupport.h"

namespace morvane {
namespace {

using namespace reduction;

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

}  // namespace
}  // namespace morvane
