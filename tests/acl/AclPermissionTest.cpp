// SPDX-License-Identifier: MIT
// The system's header first: the catalogue must stand beside it.
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gtest/gtest.h>
#include <sys/acl.h>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;
using Row = std::tuple<std::string, std::uint32_t, std::uint32_t>;

std::vector<Row> rows(const acl_perm_entry* table) {
    std::vector<Row> all;
    for (; table->name; ++table)
        all.emplace_back(table->name, table->perm, table->kinds);
    all.emplace_back("(end)", table->perm, table->kinds);
    return all;
}

std::size_t shownFor(const acl_perm_entry* table, std::uint32_t kind) {
    std::size_t count = 0;
    for (; table->name; ++table)
        count += (table->kinds & kind) != 0;
    return count;
}

TEST(AclPerms, TheReadTableHasItsRowsAndTerminator) {
    EXPECT_EQ(rows(acl_read_perms), (std::vector<Row>{{"Read Data", 0x2, 2},
                                                      {"List Folder Contents", 0x2, 1},
                                                      {"Execute File", 0x8, 2},
                                                      {"Traverse Folder", 0x8, 1},
                                                      {"Read Attributes", 0x80, 3},
                                                      {"Read Extended Attributes", 0x200, 3},
                                                      {"Read Permissions", 0x800, 3},
                                                      {"(end)", 0x2, 0}}));
}

TEST(AclPerms, TheWriteTableHasItsRowsAndTerminator) {
    EXPECT_EQ(rows(acl_write_perms), (std::vector<Row>{{"Write Data", 0x4, 2},
                                                       {"Create Files", 0x4, 1},
                                                       {"Append Data", 0x20, 2},
                                                       {"Create Folder", 0x20, 1},
                                                       {"Delete", 0x10, 3},
                                                       {"Delete Subfolders and Files", 0x40, 1},
                                                       {"Write Attributes", 0x100, 3},
                                                       {"Write Extended Attributes", 0x400, 3},
                                                       {"(end)", 0x4, 0}}));
}

TEST(AclPerms, TheAdministrationTableHasItsRowsAndTerminator) {
    EXPECT_EQ(rows(acl_admin_perms), (std::vector<Row>{{"Change Permissions", 0x1000, 3},
                                                       {"Change Owner", 0x2000, 3},
                                                       {"(end)", 0x1000, 0}}));
}

TEST(AclPerms, TheFlagTableHasItsRowsAndTerminator) {
    EXPECT_EQ(rows(acl_flags), (std::vector<Row>{{"This item", 0x100, 0},
                                                 {"Child files", 0x20, 0},
                                                 {"Child folders", 0x40, 0},
                                                 {"All descendants", 0x80, 0},
                                                 {"(end)", 0x100, 0}}));
}

TEST(AclPerms, TheGroupsNameTheirTablesAndEndAllZero) {
    EXPECT_STREQ(acl_perms[0].name, "Read");
    EXPECT_EQ(acl_perms[0].perms, acl_read_perms);
    EXPECT_STREQ(acl_perms[1].name, "Write");
    EXPECT_EQ(acl_perms[1].perms, acl_write_perms);
    EXPECT_STREQ(acl_perms[2].name, "Administration");
    EXPECT_EQ(acl_perms[2].perms, acl_admin_perms);
    EXPECT_EQ(acl_perms[3].name, nullptr);
    EXPECT_EQ(acl_perms[3].perms, nullptr);
}

TEST(AclPerms, WritePermissionsAreSixForAFolderAndFiveForAFile) {
    EXPECT_EQ(shownFor(acl_write_perms, 1), 6u);
    EXPECT_EQ(shownFor(acl_write_perms, 2), 5u);
    EXPECT_EQ(shownFor(acl_admin_perms, 1), 2u);
    EXPECT_EQ(shownFor(acl_admin_perms, 2), 2u);
}

TEST(AclPerms, TheInheritedBitStandsInNoTable) {
    EXPECT_EQ(ACL_ENTRY_INHERITED, 0x10);
    EXPECT_EQ(ACL_SEARCH, 0x8);
}

TEST(MVAclPermission, InitYieldsPermissionTwoOffAndNotSettable) {
    const auto permission = MVAclPermission::init();
    EXPECT_FALSE(permission->hasName());
    EXPECT_EQ(permission->name(), "");
    EXPECT_EQ(permission->permission(), 2);
    EXPECT_EQ(permission->state(), 0);
    EXPECT_FALSE(permission->settable());
}

TEST(MVAclPermission, EqualityIsByNameAlone) {
    const auto a = MVAclPermission::initWithName("Delete", 0x10, 1);
    EXPECT_TRUE(a->isEqual(MVAclPermission::initWithName("Delete", 2, -1).get()));
    EXPECT_FALSE(a->isEqual(MVAclPermission::initWithName("Other", 0x10, 1).get()));
    EXPECT_FALSE(a->isEqual(node("Delete", 0x10, 1).get()));
    EXPECT_FALSE(a->isEqual(nullptr));
}

TEST(MVAclPermission, NoNameIsNotAnEmptyName) {
    const auto nameless = MVAclPermission::initWithName(std::nullopt, 2, 0);
    const auto empty = MVAclPermission::initWithName("", 2, 0);
    EXPECT_FALSE(nameless->hasName());
    EXPECT_TRUE(empty->hasName());
    EXPECT_TRUE(nameless->isEqual(MVAclPermission::init().get()));
    EXPECT_FALSE(nameless->isEqual(empty.get()));
    EXPECT_FALSE(empty->isEqual(nameless.get()));
    nameless->setName("");
    EXPECT_TRUE(nameless->isEqual(empty.get()));
    nameless->setName(std::nullopt);
    EXPECT_FALSE(nameless->hasName());
    nameless->convertToFilePermission();
    EXPECT_TRUE(nameless->hasName());
    EXPECT_EQ(nameless->name(), "Read Data");
}

TEST(MVAclPermission, WhatHasNoNameIsNotLookedUp) {
    int asked = 0;
    KDLocalizedString::setLookup([&](const std::string&, const std::string&) {
        ++asked;
        return std::string("text");
    });
    EXPECT_FALSE(MVAclPermission::init()->hasName());
    EXPECT_EQ(MVAclPermission::initWithName("", 2, 0)->name(), "");
    KDLocalizedString::setLookup({});
    EXPECT_EQ(asked, 0);
}

TEST(MVAclPermission, ConversionRenamesThePermissionsThatHaveAFileCounterpart) {
    struct Case {
        std::int32_t permission;
        const char* name;
    };
    for (const auto& c : {Case{2, "Read Data"}, Case{8, "Execute File"}, Case{4, "Write Data"},
                          Case{0x20, "Append Data"}, Case{0x10, "before"}, Case{0x40, "before"},
                          Case{0, "before"}, Case{0x2000, "before"}}) {
        const auto permission = MVAclPermission::initWithName("before", c.permission, -1);
        permission->setSettable(true);
        permission->convertToFilePermission();
        EXPECT_EQ(permission->name(), c.name);
        EXPECT_EQ(permission->permission(), c.permission);
        EXPECT_EQ(permission->state(), -1);
        EXPECT_TRUE(permission->settable());
    }
}

TEST(MVAclPermission, ADecodedNameIsLookedUpAgainAndAFileCounterpartsIsNot) {
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(
        *MVAclPermission::initWithName("Create Folder", 0x20, 1));
    KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
        return "<" + table + ":" + key + ">";
    });
    const auto back =
        std::static_pointer_cast<MVAclPermission>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&MVAclPermission::classObject()}, data, nullptr));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->name(), "<ACL:Create Folder>");
    back->convertToFilePermission();
    EXPECT_EQ(back->name(), "Append Data");
    KDLocalizedString::setLookup({});
}

TEST(MVTreeNode, BoxesAreDecodedAlikeHoweverOften) {
    const auto group = node("Read", 2, -1, {0, 1, -1});
    group->mutableChildNodes().append(
        MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::init()));
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(*group);
    const auto expectNames = [&](const std::string& head, const std::string& tail) {
        // Once they are known, they are made of what is remembered.
        for (int i = 0; i != 4; ++i) {
            const auto back =
                std::static_pointer_cast<MVTreeNode>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
                    {&MVTreeNode::classObject(), &MVAclPermission::classObject()}, data, nullptr));
            ASSERT_TRUE(back);
            ASSERT_EQ(back->childNodes().size(), group->childNodes().size());
            for (std::size_t j = 0; j != back->childNodes().size(); ++j) {
                const auto& was = *MVTreeNode::permissionOf(*group->childNodes()[j]);
                const auto& is = *MVTreeNode::permissionOf(*back->childNodes()[j]);
                EXPECT_EQ(is.hasName(), was.hasName());
                EXPECT_EQ(is.name(), was.hasName() ? head + was.name() + tail : "");
                EXPECT_EQ(is.permission(), was.permission());
                EXPECT_EQ(is.state(), was.state());
                EXPECT_EQ(is.settable(), was.settable());
            }
        }
    };
    expectNames("", "");
    KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
        return "<" + table + ":" + key + ">";
    });
    expectNames("<ACL:", ">");
    KDLocalizedString::setLookup({});
    expectNames("", "");
}

TEST(MVAclPermission, PropagationGivesEveryDirectChildTheStateMixedIncluded) {
    const auto group = node("Read", 2, -1, {0, 1, 0});
    group->childNodes()[0]->mutableChildNodes().append(node("deeper", 2, 1));
    MVAclPermission::propagateStateOfPermissionNode(group.get());
    for (const auto& child : group->childNodes())
        EXPECT_EQ(MVTreeNode::stateOf(*child), -1);
    EXPECT_EQ(MVTreeNode::stateOf(*group->childNodes()[0]->childNodes()[0]), 1);
}

TEST(MVAclPermission, EverySetterTellsItsObserverOnceAlsoWhenNothingChanges) {
    const auto permission = MVAclPermission::init();
    Recorder recorder;
    for (const auto* keyPath : {&MVAclPermission::nameKeyPath, &MVAclPermission::permissionKeyPath,
                                &MVAclPermission::stateKeyPath, &MVAclPermission::settableKeyPath})
        permission->addObserver(&recorder, *keyPath);
    permission->setState(0);
    permission->setName("");
    permission->setSettable(false);
    permission->setPermission(2);
    EXPECT_EQ(recorder.told, (std::vector<std::string>{"state", "name", "settable", "permission"}));
}

std::shared_ptr<MVTreeNode> coded(const MVTreeNode& tree, NSErrorRef* error) {
    return std::static_pointer_cast<MVTreeNode>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
        {&MVTreeNode::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(tree), error));
}

TEST(MVTreeNode, AGroupWithFiveChildrenComesBackInOrderAndNotSettable) {
    const auto group = node("Read", 2, -1, {0, 1, -1, 1, 0});
    MVTreeNode::permissionOf(*group->childNodes()[2])->setSettable(true);
    NSErrorRef error;
    const auto back = coded(*group, &error);
    ASSERT_TRUE(back) << error->localizedDescription();
    ASSERT_EQ(back->childNodes().size(), 5u);
    EXPECT_EQ(MVTreeNode::permissionOf(*back)->name(), "Read");
    EXPECT_EQ(MVTreeNode::stateOf(*back), -1);
    for (std::size_t i = 0; i < 5; ++i) {
        const auto& was = *MVTreeNode::permissionOf(*group->childNodes()[i]);
        const auto& is = *MVTreeNode::permissionOf(*back->childNodes()[i]);
        EXPECT_EQ(is.name(), was.name());
        EXPECT_EQ(is.permission(), was.permission());
        EXPECT_EQ(is.state(), was.state());
        EXPECT_FALSE(is.settable());
        EXPECT_EQ(back->childNodes()[i]->parentNode(), back.get());
    }
}

TEST(MVTreeNode, ANodeWithoutACheckBoxReadsAsOffAndIgnoresWrites) {
    NSErrorRef error;
    const auto back = coded(*MVTreeNode::treeNodeWithRepresentedObject(nullptr), &error);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->representedObject(), nullptr);
    MVTreeNode::setStateOf(*back, 1);
    EXPECT_EQ(MVTreeNode::stateOf(*back), 0);
    EXPECT_TRUE(back->childNodes().empty());
}

}  // namespace
}  // namespace morvane
