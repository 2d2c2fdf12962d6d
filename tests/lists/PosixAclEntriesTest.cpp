// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

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

constexpr std::uint32_t owner = 1000;
constexpr std::uint32_t group = 100;
constexpr std::uint32_t alice = 2001;
constexpr std::uint32_t bob = 2002;
constexpr std::uint32_t staff = 3001;
constexpr std::uint32_t guests = 3002;

PosixAcl fileWith(PosixList access) {
    return {owner, group, false, std::move(access), {}};
}

PosixAcl folderWith(PosixList access, PosixList defaults) {
    return {owner, group, true, std::move(access), std::move(defaults)};
}

PosixList baseOf(PosixRights u, PosixRights g, PosixRights o) {
    return {u, g, o, {}, {}, {}};
}

ShownRights flat(CBPosixIdentity who, PosixRights rights) {
    return {who, false, rights, true, true, false};
}
ShownRights allow(CBPosixIdentity who, PosixRights rights) {
    return {who, false, rights, false, true, false};
}
ShownRights deny(CBPosixIdentity who, PosixRights rights) {
    return {who, true, rights, false, true, false};
}
ShownRights forChildren(ShownRights shown) {
    shown.appliesToItem = false;
    shown.appliesToChildren = true;
    return shown;
}
ShownRights forAll(ShownRights shown) {
    shown.appliesToChildren = true;
    return shown;
}

/// "Name=state" of a group's boxes that are on or mixed.
std::string boxesOn(const NSTreeNode& node) {
    std::string text;
    for (const auto& child : node.childNodes()) {
        if (MVTreeNode::stateOf(*child) == MVStateOn)
            text += (text.empty() ? "" : ", ") + MVTreeNode::permissionOf(*child)->name();
    }
    return text;
}

/// All boxes that are on in the three groups of a tree entry for `alice`, allowed `rights`.
std::string boxesOfTree(PosixRights rights, bool isDirectory) {
    PosixAcl acl = fileWith({none, none, none, rwx, {{alice, rights}}, {}});
    acl.isDirectory = isDirectory;
    const auto entries = entriesOfPosixAcl(acl);
    std::string text;
    for (std::size_t i = 0; i != 3; ++i)
        text += (i ? " | " : "") + boxesOn(*entries.at(1)->permissions().at(i));
    return text;
}

using Shown = std::vector<ShownRights>;

TEST(PosixAclEntries, TheModeAloneIsThreeFlatEntriesOwnerOwningGroupEveryone) {
    EXPECT_EQ(shownRightsOfPosixAcl(fileWith(baseOf(rw, r, none))),
              (Shown{flat(CBPosixUser{owner}, rw), flat(CBPosixGroup{group}, r),
                     flat(CBEveryone{}, none)}));
}

TEST(PosixAclEntries, EachFlatEntryHasReadWriteAndExecuteWithoutChildrenForEveryMode) {
    for (unsigned bits = 0; bits != 8; ++bits) {
        const auto entries =
            entriesOfPosixAcl(fileWith(baseOf(static_cast<PosixRights>(bits), none, none)));
        const auto& tree = entries.at(0)->permissions();
        ASSERT_EQ(tree.size(), 3U);
        const std::pair<const char*, unsigned> expected[] = {
            {"Read", 4}, {"Write", 2}, {"Execute", 1}};
        for (std::size_t i = 0; i != 3; ++i) {
            EXPECT_EQ(MVTreeNode::permissionOf(*tree[i])->name(), expected[i].first);
            EXPECT_EQ(MVTreeNode::stateOf(*tree[i]), (bits & expected[i].second) != 0 ? 1 : 0);
            EXPECT_TRUE(tree[i]->childNodes().empty());
        }
        EXPECT_FALSE(entries[0]->isAcl());
        EXPECT_EQ(entries[0]->tag(), 1);
        EXPECT_FALSE(entries[0]->inherited());
    }
}

TEST(PosixAclEntries, FlatEntriesCarryTheIdentitiesOfTheirClasses) {
    const auto entries = entriesOfPosixAcl(fileWith(baseOf(rw, r, none)));
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0]->uuid(), uuidOfPosixIdentity(CBPosixUser{owner}));
    EXPECT_EQ(entries[1]->uuid(), uuidOfPosixIdentity(CBPosixGroup{group}));
    EXPECT_EQ(entries[2]->uuid(), uuidOfPosixIdentity(CBEveryone{}));
}

TEST(PosixAclEntries, AnItemThatGrantsNothingStillShowsItsThreeFlatEntriesAsNone) {
    const auto entries = entriesOfPosixAcl(fileWith(baseOf(none, none, none)));
    ASSERT_EQ(entries.size(), 3U);
    for (const auto& entry : entries)
        EXPECT_EQ(entry->permissionGroup(), MVAclGroupNone);
}

TEST(PosixAclEntries, NamedUsersStandAfterTheOwnerAndNamedGroupsAfterTheOwningGroup) {
    EXPECT_EQ(
        shownRightsOfPosixAcl(fileWith({rw, r, none, rwx, {{alice, r}, {bob, rw}}, {{staff, r}}})),
        (Shown{flat(CBPosixUser{owner}, rw), allow(CBPosixUser{alice}, r),
               allow(CBPosixUser{bob}, rw), flat(CBPosixGroup{group}, r),
               allow(CBPosixGroup{staff}, r), flat(CBEveryone{}, none)}));
}

TEST(PosixAclEntries, TheMaskTakesRightsFromNamedEntriesAndFromTheOwningGroup) {
    EXPECT_EQ(shownRightsOfPosixAcl(fileWith({rw, rw, none, r, {{alice, rw}}, {{staff, rx}}})),
              (Shown{flat(CBPosixUser{owner}, rw), allow(CBPosixUser{alice}, r),
                     flat(CBPosixGroup{group}, r), allow(CBPosixGroup{staff}, r),
                     flat(CBEveryone{}, none)}));
}

TEST(PosixAclEntries, TheMaskTakesNothingFromTheOwnerAndFromOthers) {
    const auto shown = shownRightsOfPosixAcl(fileWith({rwx, r, rw, none, {{alice, rwx}}, {}}));
    EXPECT_EQ(shown.front(), flat(CBPosixUser{owner}, rwx));
    EXPECT_EQ(shown.back(), flat(CBEveryone{}, rw));
}

TEST(PosixAclEntries, ANamedUserWithoutARightThatOthersHaveIsDeniedItFirst) {
    EXPECT_EQ(shownRightsOfPosixAcl(fileWith({rw, none, rw, rwx, {{alice, r}}, {}})),
              (Shown{flat(CBPosixUser{owner}, rw), deny(CBPosixUser{alice}, w),
                     allow(CBPosixUser{alice}, r), flat(CBPosixGroup{group}, none),
                     flat(CBEveryone{}, rw)}));
}

TEST(PosixAclEntries, ANamedUserIsDeniedWhatTheOwningGroupOrANamedGroupHas) {
    const auto shown =
        shownRightsOfPosixAcl(fileWith({rw, w, none, rwx, {{alice, r}}, {{staff, rx}}}));
    EXPECT_EQ(shown[1], deny(CBPosixUser{alice}, w | x));
    EXPECT_EQ(shown[2], allow(CBPosixUser{alice}, r));
}

TEST(PosixAclEntries, ANamedGroupIsDeniedWhatOthersHaveButNotWhatAnotherGroupHas) {
    const auto shown =
        shownRightsOfPosixAcl(fileWith({rwx, rwx, w, rwx, {}, {{staff, r}, {guests, rx}}}));
    EXPECT_EQ(shown, (Shown{flat(CBPosixUser{owner}, rwx), flat(CBPosixGroup{group}, rwx),
                            deny(CBPosixGroup{staff}, w), allow(CBPosixGroup{staff}, r),
                            deny(CBPosixGroup{guests}, w), allow(CBPosixGroup{guests}, rx),
                            flat(CBEveryone{}, w)}));
}

TEST(PosixAclEntries, WhatTheMaskTakesFromALaterClassNeedsNoDenyEntry) {
    const auto shown = shownRightsOfPosixAcl(fileWith({rw, rwx, none, r, {{alice, r}}, {}}));
    EXPECT_EQ(shown[1], allow(CBPosixUser{alice}, r));
    EXPECT_EQ(shown.size(), 4U);
}

TEST(PosixAclEntries, ANamedEntryThatGrantsNothingIsADenialOfEverything) {
    EXPECT_EQ(shownRightsOfPosixAcl(fileWith({rw, none, none, r, {{alice, none}}, {{staff, w}}})),
              (Shown{flat(CBPosixUser{owner}, rw), deny(CBPosixUser{alice}, rwx),
                     flat(CBPosixGroup{group}, none), deny(CBPosixGroup{staff}, rwx),
                     flat(CBEveryone{}, none)}));
}

TEST(PosixAclEntries, UnderAMaskOfNothingWhoIsNamedHasWhatOthersHave) {
    EXPECT_EQ(shownRightsOfPosixAcl(fileWith({rw, rw, r, none, {{alice, rw}}, {}})),
              (Shown{flat(CBPosixUser{owner}, rw), allow(CBPosixUser{alice}, r),
                     flat(CBPosixGroup{group}, none), flat(CBEveryone{}, r)}));
}

TEST(PosixAclEntries, TheDefaultListIsTreeEntriesForTheChildrenAfterTheBase) {
    EXPECT_EQ(
        shownRightsOfPosixAcl(
            folderWith(baseOf(rwx, rx, none), {rwx, rx, r, rwx, {{alice, rwx}}, {{staff, rx}}})),
        (Shown{flat(CBPosixUser{owner}, rwx), forChildren(allow(CBPosixUser{alice}, rwx)),
               flat(CBPosixGroup{group}, rx), flat(CBEveryone{}, none),
               forChildren(allow(CBCreator{false}, rwx)), forChildren(allow(CBCreator{true}, rx)),
               forChildren(allow(CBPosixGroup{staff}, rx)), forChildren(allow(CBEveryone{}, r))}));
}

TEST(PosixAclEntries, TheMaskOfTheDefaultListIsItsOwn) {
    const auto shown = shownRightsOfPosixAcl(
        folderWith({rwx, rx, none, rwx, {}, {}}, {rwx, rwx, none, r, {{alice, rw}}, {}}));
    EXPECT_EQ(shown[1], forChildren(allow(CBPosixUser{alice}, r)));
    EXPECT_EQ(shown[5], forChildren(allow(CBCreator{true}, r)));
}

TEST(PosixAclEntries, TheDefaultOwnerIsDeniedWhatLaterClassesHave) {
    const auto shown =
        shownRightsOfPosixAcl(folderWith(baseOf(rwx, none, none), baseOf(r, none, rw)));
    EXPECT_EQ(shown[3], forChildren(deny(CBCreator{false}, w)));
    EXPECT_EQ(shown[4], forChildren(allow(CBCreator{false}, r)));
    EXPECT_EQ(shown[5], forChildren(deny(CBCreator{true}, rw)));
    EXPECT_EQ(shown[6], forChildren(allow(CBCreator{true}, none)));
    EXPECT_EQ(shown[7], forChildren(allow(CBEveryone{}, rw)));
    EXPECT_EQ(shown.size(), 8U);
}

TEST(PosixAclEntries, AnIdentityWithTheSameRightsInBothListsIsOneEntry) {
    const PosixList list{rwx, none, none, rwx, {{alice, rx}}, {{staff, r}}};
    EXPECT_EQ(
        shownRightsOfPosixAcl(folderWith(list, list)),
        (Shown{flat(CBPosixUser{owner}, rwx), forAll(allow(CBPosixUser{alice}, rx)),
               flat(CBPosixGroup{group}, none), forAll(allow(CBPosixGroup{staff}, r)),
               flat(CBEveryone{}, none), forChildren(allow(CBCreator{false}, rwx)),
               forChildren(allow(CBCreator{true}, none)), forChildren(allow(CBEveryone{}, none))}));
}

TEST(PosixAclEntries, AnIdentityWithOtherRightsInTheDefaultListIsTwoEntries) {
    const auto shown = shownRightsOfPosixAcl(folderWith({rwx, none, none, rwx, {{alice, rx}}, {}},
                                                        {rwx, none, none, rwx, {{alice, r}}, {}}));
    EXPECT_EQ(shown[1], allow(CBPosixUser{alice}, rx));
    EXPECT_EQ(shown[2], forChildren(allow(CBPosixUser{alice}, r)));
}

TEST(PosixAclEntries, ReadOfAFileIsReadDataAndReadExtendedAttributes) {
    EXPECT_EQ(boxesOfTree(r, false),
              "Read Data, Read Attributes, Read Extended Attributes, Read Permissions |  | ");
}

TEST(PosixAclEntries, ReadOfAFolderIsListFolderContentsAndReadExtendedAttributes) {
    EXPECT_EQ(boxesOfTree(r, true),
              "List Folder Contents, Read Attributes, Read Extended Attributes, "
              "Read Permissions |  | ");
}

TEST(PosixAclEntries, WriteOfAFileIsWriteAppendAndWriteExtendedAttributes) {
    EXPECT_EQ(boxesOfTree(w, false),
              "Read Attributes, Read Permissions | Write Data, Append Data, "
              "Write Extended Attributes | ");
}

TEST(PosixAclEntries, WriteOfAFolderIsCreateDeleteChildrenAndWriteExtendedAttributes) {
    EXPECT_EQ(boxesOfTree(w, true),
              "Read Attributes, Read Permissions | Create Files, Create Folder, "
              "Delete Subfolders and Files, Write Extended Attributes | ");
}

TEST(PosixAclEntries, ExecuteOfAFileIsExecuteFile) {
    EXPECT_EQ(boxesOfTree(x, false), "Execute File, Read Attributes, Read Permissions |  | ");
}

TEST(PosixAclEntries, ExecuteOfAFolderIsTraverseFolder) {
    EXPECT_EQ(boxesOfTree(x, true), "Traverse Folder, Read Attributes, Read Permissions |  | ");
}

TEST(PosixAclEntries, TheCreatorMayBesidesWriteAttributesAndChangePermissions) {
    const auto entries =
        entriesOfPosixAcl(folderWith(baseOf(rwx, none, none), baseOf(x, none, none)));
    const auto& tree = entries.at(3)->permissions();
    EXPECT_EQ(entries[3]->identity()->name(), "creator");
    EXPECT_EQ(boxesOn(*tree.at(0)), "Traverse Folder, Read Attributes, Read Permissions");
    EXPECT_EQ(boxesOn(*tree.at(1)), "Write Attributes");
    EXPECT_EQ(boxesOn(*tree.at(2)), "Change Permissions");
}

TEST(PosixAclEntries, ADenyEntryTakesAwayItsBundleAlone) {
    const auto entries = entriesOfPosixAcl(fileWith({rw, none, rw, rwx, {{alice, none}}, {}}));
    ASSERT_EQ(entries.at(1)->tag(), 2);
    const auto& tree = entries[1]->permissions();
    EXPECT_EQ(boxesOn(*tree.at(0)), "Read Data, Execute File, Read Extended Attributes");
    EXPECT_EQ(boxesOn(*tree.at(1)), "Write Data, Append Data, Write Extended Attributes");
    EXPECT_EQ(boxesOn(*tree.at(2)), "");
}

TEST(PosixAclEntries, TheGroupsOfATreeFollowTheirBoxes) {
    const auto entries = entriesOfPosixAcl(fileWith({rw, none, none, rwx, {{alice, rwx}}, {}}));
    const auto& tree = entries.at(1)->permissions();
    ASSERT_EQ(tree.size(), 3U);
    EXPECT_EQ(MVTreeNode::stateOf(*tree[0]), MVStateOn);
    EXPECT_EQ(MVTreeNode::stateOf(*tree[1]), MVStateMixed);
    EXPECT_EQ(MVTreeNode::stateOf(*tree[2]), MVStateOff);
    EXPECT_TRUE(entries[1]->isAcl());
}

TEST(PosixAclEntries, AFoldersNamedEntryWithoutADefaultAppliesToThisItemAlone) {
    PosixAcl acl = fileWith({rwx, none, none, rwx, {{alice, rx}}, {}});
    acl.isDirectory = true;
    const auto entries = entriesOfPosixAcl(acl);
    ASSERT_EQ(entries.at(1)->permissions().size(), 4U);
    EXPECT_EQ(boxesOn(*entries[1]->permissions()[3]), "This item");
    EXPECT_EQ(entries[1]->applicableTo(), "This item");
}

TEST(PosixAclEntries, ADefaultEntryAppliesToChildrenAndDescendantsWithoutThisItem) {
    const auto entries =
        entriesOfPosixAcl(folderWith(baseOf(rwx, none, none), baseOf(rwx, none, none)));
    ASSERT_EQ(entries.size(), 6U);
    EXPECT_EQ(boxesOn(*entries[3]->permissions().at(3)),
              "Child files, Child folders, All descendants");
    EXPECT_EQ(entries[3]->applicableTo(),
              "Not this item, Child files, Child folders, All descendants");
}

TEST(PosixAclEntries, AMergedEntryAppliesToAllFour) {
    const auto entries = entriesOfPosixAcl(folderWith({rwx, none, none, rwx, {{alice, r}}, {}},
                                                      {rwx, none, none, rwx, {{alice, r}}, {}}));
    EXPECT_EQ(boxesOn(*entries.at(1)->permissions().at(3)),
              "This item, Child files, Child folders, All descendants");
    EXPECT_EQ(MVTreeNode::stateOf(*entries[1]->permissions()[3]), MVStateOn);
}

}  // namespace
}  // namespace morvane
