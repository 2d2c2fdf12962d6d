// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <utility>

#include "PosixReductionSupport.h"

namespace morvane {
namespace {

using namespace reduction;

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

TEST(PosixAclReduction, ADenialForAGroupLeavesTheEntryOfItsMemberBesideTheOwnersClassAsItIs) {
    const PosixList old{rw, none, none, rwx, {{owner, rwx}}, {}};
    auto whose = changing(old);
    whose.groupsOf = [](std::uint32_t uid) {
        return uid == owner ? std::vector{staff} : std::vector<std::uint32_t>{};
    };
    const auto entries =
        Entries{deny(CBPosixGroup{staff}, w)} + entriesOfPosixAcl({owner, group, false, old, {}});
    const PosixList stored{r, none, none, rwx, {{owner, rwx}}, {{staff, none}}};
    EXPECT_EQ(reduced(entries, whose), stored);
    EXPECT_EQ(reduced(entriesOfPosixAcl({owner, group, false, stored, {}}), whose), stored)
        << "also where the nearest list is evaluated again";
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

}  // namespace
}  // namespace morvane
