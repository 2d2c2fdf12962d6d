// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <string>

#include "PosixReductionSupport.h"

namespace morvane {
namespace {

using namespace reduction;

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
    EXPECT_THAT(textsOfLosses(result.losses), testing::IsEmpty());
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
    EXPECT_THAT(textsOfLosses(result.losses), testing::IsEmpty());
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
