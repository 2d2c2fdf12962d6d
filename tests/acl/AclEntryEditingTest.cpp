// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;
using testing::Each;
using testing::ElementsAre;

struct MVAclEntryEditing : testing::Test {
    World world;
    std::shared_ptr<MVAclEntry> file = MVAclEntry::newEntryForDirectory(false);
    std::shared_ptr<MVAclEntry> folder = MVAclEntry::newEntryForDirectory(true);
};

TEST_F(MVAclEntryEditing, ANewFileEntryReadsAndWrites) {
    EXPECT_EQ(file->permissions().size(), 3u);
    EXPECT_THAT(states(*file, 0), ElementsAre(1, 1, 1, 1, 1));
    EXPECT_THAT(states(*file, 1), ElementsAre(1, 1, 1, 1, 1));
    EXPECT_THAT(states(*file, 2), ElementsAre(0, 0));
    EXPECT_EQ(box(*file, 0).state(), 1);
    EXPECT_EQ(box(*file, 1).state(), 1);
    EXPECT_EQ(box(*file, 2).state(), 0);
    EXPECT_EQ(file->permissionGroup(), 2);
    EXPECT_FALSE(file->isShallow());
    EXPECT_EQ(file->tag(), 1);
    EXPECT_EQ(file->uuid(), uuidOfPosixIdentity(CBPosixUser{1000}));
    EXPECT_THAT(names(*file, 0), ElementsAre("Read Data", "Execute File", "Read Attributes",
                                             "Read Extended Attributes", "Read Permissions"));
    EXPECT_THAT(names(*file, 1), ElementsAre("Write Data", "Append Data", "Delete",
                                             "Write Attributes", "Write Extended Attributes"));
}

TEST_F(MVAclEntryEditing, ANewFolderEntryAppliesToThisItemOnly) {
    EXPECT_EQ(folder->permissions().size(), 4u);
    EXPECT_THAT(names(*folder, 0),
                ElementsAre("List Folder Contents", "Traverse Folder", "Read Attributes",
                            "Read Extended Attributes", "Read Permissions"));
    EXPECT_THAT(names(*folder, 1), ElementsAre("Create Files", "Create Folder", "Delete",
                                               "Delete Subfolders and Files", "Write Attributes",
                                               "Write Extended Attributes"));
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 0, 0, 0));
    EXPECT_EQ(box(*folder, 3).state(), -1);
    EXPECT_EQ(box(*folder, 3).name(), "Applies To");
    EXPECT_EQ(box(*folder, 3).permission(), 0x2000);
    EXPECT_EQ(box(*folder, 2).permission(), 2);
    EXPECT_EQ(folder->permissionGroup(), 2);
    EXPECT_EQ(folder->applicableTo(), "This item");
    EXPECT_TRUE(folder->applicableToInitialized());
}

TEST_F(MVAclEntryEditing, ANewEntryOfAnUnknownUserHasNoUuid) {
    world.users->userName = "nobody-knows";
    EXPECT_EQ(MVAclEntry::newEntryForDirectory(false)->uuid(), std::nullopt);
}

TEST_F(MVAclEntryEditing, TurningOffOneReadChildMakesReadMixedAndTheCodeCustom) {
    box(*file, 0, 2).setState(0);
    EXPECT_EQ(box(*file, 0).state(), -1);
    EXPECT_EQ(file->permissionGroup(), 6);
    box(*file, 0, 2).setState(1);
    EXPECT_EQ(box(*file, 0).state(), 1);
    EXPECT_EQ(file->permissionGroup(), 2);
}

TEST_F(MVAclEntryEditing, WhatIsBelowABoxIsNotFollowed) {
    const auto deep = node("deep", 2, 1);
    const auto tree = file->permissions();
    file->setPermissions({});
    tree[0]->childNodeAtIndex(0)->mutableChildNodes().append(deep);
    file->setPermissions(tree);
    Recorder recorder;
    file->addObserver(&recorder);
    MVTreeNode::setStateOf(*deep, 0);
    EXPECT_EQ(box(*file, 0, 0).state(), 1);
    EXPECT_TRUE(recorder.told.empty());
}

TEST_F(MVAclEntryEditing, TurningAdministrationOnTurnsItsChildrenOnAndGivesAll) {
    box(*file, 2).setState(1);
    EXPECT_THAT(states(*file, 2), ElementsAre(1, 1));
    EXPECT_EQ(file->permissionGroup(), 1);
}

TEST_F(MVAclEntryEditing, EveryCodeSetsItsGroupsAndTheirBoxes) {
    struct Case {
        std::int64_t code, read, write, administration;
    };
    for (const auto& c :
         {Case{1, 1, 1, 1}, Case{2, 1, 1, 0}, Case{3, 1, 0, 0}, Case{4, 0, 1, 0}, Case{5, 0, 0, 0},
          Case{0, 1, 1, 1}, Case{7, 1, 1, 1}, Case{-1, 1, 1, 1}}) {
        folder->setPermissionGroup(c.code);
        EXPECT_EQ(folder->permissionGroup(), c.code);
        EXPECT_EQ(box(*folder, 0).state(), c.read);
        EXPECT_THAT(states(*folder, 0), Each(c.read));
        EXPECT_EQ(box(*folder, 1).state(), c.write);
        EXPECT_THAT(states(*folder, 1), Each(c.write));
        EXPECT_EQ(box(*folder, 2).state(), c.administration);
        EXPECT_THAT(states(*folder, 2), Each(c.administration));
        EXPECT_THAT(states(*folder, 3), ElementsAre(1, 0, 0, 0));
        EXPECT_EQ(box(*folder, 3).state(), -1);
        EXPECT_FALSE(folder->updatingPermissions());
    }
}

TEST_F(MVAclEntryEditing, EveryCombinationOfGroupStatesHasItsCode) {
    for (std::int64_t r = -1; r <= 1; ++r) {
        for (std::int64_t w = -1; w <= 1; ++w) {
            for (std::int64_t a = -1; a <= 1; ++a) {
                std::int64_t code = 6;
                if (r == 1 && w == 1 && a == 1)
                    code = 1;
                if (r == 1 && w == 1 && a == 0)
                    code = 2;
                if (r == 1 && w == 0 && a == 0)
                    code = 3;
                if (r == 0 && w == 1 && a == 0)
                    code = 4;
                if (r == 0 && w == 0 && a == 0)
                    code = 5;
                const auto flat = MVAclEntry::initWithUuid({}, 1, flatTree(r, w, a), false);
                EXPECT_EQ(flat->permissionGroup(), code) << r << w << a;
            }
        }
    }
}

TEST_F(MVAclEntryEditing, AllOffIsNoneOnceChosenButCustomAfterAnEdit) {
    file->setPermissionGroup(5);
    EXPECT_EQ(file->permissionGroup(), 5);
    box(*file, 0, 0).setState(0);
    EXPECT_EQ(file->permissionGroup(), 6);
}

TEST_F(MVAclEntryEditing, AGroupIsMixedWithMixedChildrenAndOffWithoutAny) {
    const auto mixed = node("Read", 2, 1, {-1, -1});
    MVAclEntry::resolveStateForPermissionNode(mixed.get());
    EXPECT_EQ(MVTreeNode::stateOf(*mixed), -1);
    const auto bare = node("Read", 2, 1);
    MVAclEntry::resolveStateForPermissionNode(bare.get());
    EXPECT_EQ(MVTreeNode::stateOf(*bare), 0);
    MVAclEntry::resolveStateForPermissionNode(nullptr);
}

TEST_F(MVAclEntryEditing, ChosenCustomSpringsBackOnTheNextTurn) {
    file->setPermissionGroup(6);
    EXPECT_EQ(file->permissionGroup(), 6);
    EXPECT_TRUE(file->updatingPermissions());
    box(*file, 0).setState(0);  // not followed while the task waits
    EXPECT_THAT(states(*file, 0), Each(1));
    EXPECT_EQ(world.loop->turn(), 1u);
    EXPECT_EQ(file->permissionGroup(), 2);
    EXPECT_FALSE(file->updatingPermissions());
    EXPECT_THAT(states(*file, 0), Each(1));
    EXPECT_EQ(box(*file, 0).state(), 0);
    EXPECT_EQ(world.loop->turn(), 0u);
}

TEST_F(MVAclEntryEditing, TheWaitingTaskHoldsTheEntry) {
    file->setPermissionGroup(6);
    const std::weak_ptr<MVAclEntry> weak = file;
    file.reset();
    EXPECT_FALSE(weak.expired());
    world.loop->turn();
    EXPECT_TRUE(weak.expired());
}

TEST_F(MVAclEntryEditing, AWaitingTaskWhoseGuardWasClearedAppliesTheFormerCode) {
    file->setPermissionGroup(3);
    file->setPermissionGroup(6);
    file->setInherited(false);
    EXPECT_FALSE(file->updatingPermissions());
    box(*file, 1).setState(1);
    EXPECT_EQ(file->permissionGroup(), 2);
    world.loop->turn();
    EXPECT_EQ(file->permissionGroup(), 3);
    EXPECT_THAT(states(*file, 1), Each(0));
    EXPECT_FALSE(file->updatingPermissions());
}

TEST_F(MVAclEntryEditing, AWaitingTaskOfAFormerCustomCodeQueuesItselfAgain) {
    box(*file, 0, 0).setState(0);
    ASSERT_EQ(file->permissionGroup(), 6);
    file->setPermissionGroup(6);
    file->setInherited(false);
    EXPECT_EQ(world.loop->turn(), 1u);
    EXPECT_EQ(file->permissionGroup(), 6);
    EXPECT_FALSE(file->updatingPermissions());
    EXPECT_EQ(world.loop->waiting(), 1u);
    EXPECT_EQ(world.loop->turn(), 1u);
    EXPECT_EQ(world.loop->waiting(), 1u);
    EXPECT_EQ(states(*file, 0), (std::vector<std::int64_t>{0, 1, 1, 1, 1}));
    file->setUpdatingPermissions(true);  // with the guard set, the next one only stores
    EXPECT_EQ(world.loop->turn(), 1u);
    EXPECT_EQ(world.loop->waiting(), 0u);
}

TEST_F(MVAclEntryEditing, AWaitingTaskLeavesATreeThatLacksAGroupAsItIs) {
    const auto two =
        MVAclEntry::initWithUuid({}, 1, {node("Read", 2, 0), node("Write", 2, 0)}, false);
    EXPECT_EQ(exceptionName([&] { two->setPermissionGroup(3); }), "NSRangeException");
    two->setInherited(false);
    two->setPermissionGroup(6);
    two->setInherited(false);
    EXPECT_EQ(exceptionName([&] { EXPECT_EQ(world.loop->turn(), 1u); }), "none");
    EXPECT_EQ(two->permissionGroup(), 3);
    EXPECT_FALSE(two->updatingPermissions());
}

TEST_F(MVAclEntryEditing, ACodeForFewerThanThreeGroupsThrowsRange) {
    EXPECT_EQ(exceptionName([] { MVAclEntry::init()->setPermissionGroup(1); }), "NSRangeException");
    const auto two =
        MVAclEntry::initWithUuid({}, 1, {node("Read", 2, 0), node("Write", 2, 0)}, false);
    EXPECT_EQ(two->permissionGroup(), 6);
    EXPECT_EQ(exceptionName([&] { two->setPermissionGroup(2); }), "NSRangeException");
}

TEST_F(MVAclEntryEditing, AnEditTellsOfTheCodeOnceAndAChoiceToo) {
    Recorder recorder;
    file->addObserver(&recorder);
    box(*file, 0, 0).setState(1);  // unchanged, yet told
    EXPECT_THAT(recorder.told, ElementsAre("permissionGroup"));
    file->setPermissionGroup(2);
    EXPECT_THAT(recorder.told, ElementsAre("permissionGroup", "permissionGroup"));
    file->setPermissionGroup(6);
    EXPECT_EQ(recorder.told.size(), 3u);
    world.loop->turn();
    EXPECT_EQ(recorder.told.size(), 4u);
    file->setInherited(true);
    EXPECT_EQ(recorder.told.back(), "inherited");
    EXPECT_EQ(recorder.told.size(), 5u);
}

TEST_F(MVAclEntryEditing, TheCodeIsToldAfterTheTreeHasFollowed) {
    struct Watcher final : NSKeyValueObserver {
        std::int64_t write = 9;
        bool guarded = true;
        void observeValueForKeyPath(const NSKeyPath&, NSObject& object) override {
            const auto& entry = static_cast<MVAclEntry&>(object);
            write = box(entry, 1, 0).state();
            guarded = entry.updatingPermissions();
        }
    } watcher;
    file->addObserver(&watcher, MVAclEntry::permissionGroupKeyPath);
    file->setPermissionGroup(3);
    EXPECT_EQ(watcher.write, 0);
    EXPECT_FALSE(watcher.guarded);
}

TEST_F(MVAclEntryEditing, TheTextNamesWhatIsOn) {
    setApplicability(*folder, 1, 1, 1, 0);
    EXPECT_EQ(folder->applicableTo(), "This item, Child files, Child folders");
    setApplicability(*folder, 0, 0, 1, 1);
    EXPECT_EQ(folder->applicableTo(), "Not this item, Child folders, All descendants");
}

TEST_F(MVAclEntryEditing, ThisItemAloneIsLockedOn) {
    EXPECT_EQ(box(*folder, 3, 0).state(), 1);
    EXPECT_FALSE(box(*folder, 3, 0).settable());
    EXPECT_EQ(folder->applicableTo(), "This item");
    box(*folder, 3, 1).setState(1);
    EXPECT_TRUE(box(*folder, 3, 0).settable());
}

TEST_F(MVAclEntryEditing, ThisItemIsSwitchedBackOnWhileTheTextStillSaysNot) {
    box(*folder, 3, 0).setState(0);
    EXPECT_EQ(folder->applicableTo(), "Not this item");
    EXPECT_EQ(box(*folder, 3, 0).state(), 1);
    folder->resolveApplicableTo();
    EXPECT_EQ(folder->applicableTo(), "This item");
}

TEST_F(MVAclEntryEditing, AllDescendantsIsForcedOffWithoutChildFoldersAndNamedOnceMore) {
    box(*folder, 3, 3).setState(1);
    EXPECT_EQ(box(*folder, 3, 3).state(), 0);
    EXPECT_FALSE(box(*folder, 3, 3).settable());
    EXPECT_EQ(folder->applicableTo(), "This item, All descendants");
    folder->resolveApplicableTo();
    EXPECT_EQ(folder->applicableTo(), "This item");
    box(*folder, 3, 2).setState(1);
    EXPECT_TRUE(box(*folder, 3, 3).settable());
    box(*folder, 3, 2).setState(-1);
    EXPECT_FALSE(box(*folder, 3, 3).settable());
}

TEST_F(MVAclEntryEditing, AFreshEntryKeepsItsThisItemBoxUntilTheSecondRun) {
    const auto tree = folder->permissions();
    folder->setPermissions({});
    MVTreeNode::setStateOf(*tree[3]->childNodeAtIndex(0), 0);
    const auto entry = MVAclEntry::initWithUuid({}, 1, tree, false);
    EXPECT_EQ(box(*entry, 3, 0).state(), 0);
    EXPECT_TRUE(box(*entry, 3, 0).settable());
    EXPECT_EQ(entry->applicableTo(), "Not this item");
    entry->resolveApplicableTo();
    EXPECT_EQ(box(*entry, 3, 0).state(), 1);
    EXPECT_FALSE(box(*entry, 3, 0).settable());
}

TEST_F(MVAclEntryEditing, AnInheritedEntryHasNoSettableBox) {
    setApplicability(*folder, 1, 1, 1, 1);
    const auto settable = [&] {
        std::string all;
        for (std::size_t group = 0; group < 4; ++group) {
            all += box(*folder, group).settable() ? '1' : '0';
            for (std::size_t i = 0; i < states(*folder, group).size(); ++i)
                all += box(*folder, group, i).settable() ? '1' : '0';
        }
        return all;
    };
    folder->setInherited(true);
    EXPECT_EQ(settable(), std::string(21, '0'));
    folder->setInherited(false);
    EXPECT_EQ(settable(), std::string(21, '1'));
    setApplicability(*folder, 1, 0, 0, 0);
    folder->setInherited(false);
    EXPECT_EQ(settable(), std::string(17, '1') + "0110");
}

TEST_F(MVAclEntryEditing, TheApplicabilityIsReadFromTheLastGroupByTheFlagsOfItsBoxes) {
    const auto last = node("Applies To", 0x2000, 0);
    last->mutableChildNodes().append(node("below", 0x80, 1));
    last->mutableChildNodes().append(node("files", 0x20, 1));
    last->mutableChildNodes().append(node("item", 0x100, 1));
    auto tree = folder->permissions();
    folder->setPermissions({});
    tree.push_back(last);
    const auto entry = MVAclEntry::initWithUuid({}, 1, tree, false);
    EXPECT_EQ(entry->applicableTo(), ", below, filesitem");
    EXPECT_THAT(states(*entry, 4), ElementsAre(0, 1, 1));
    EXPECT_THAT(states(*entry, 3), ElementsAre(1, 0, 0, 0));
}

TEST_F(MVAclEntryEditing, AFileEntryAppliesToThisItemAndIsNeverInitialized) {
    file->setApplicableTo("x");
    file->resolveApplicableTo();
    EXPECT_EQ(file->applicableTo(), "This item");
    EXPECT_FALSE(file->applicableToInitialized());
}

TEST_F(MVAclEntryEditing, NamesAndTextsAreLocalised) {
    KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
        return key.starts_with("<") ? key : "<" + table + ":" + key + ">";
    });
    const auto entry = MVAclEntry::newEntryForDirectory(true);
    KDLocalizedString::setLookup({});
    EXPECT_EQ(box(*entry, 3).name(), "<ACL:Applies To>");
    EXPECT_EQ(box(*entry, 0).name(), "<ACL:Read>");
    EXPECT_EQ(entry->applicableTo(), "<ACL:This item>");
}

}  // namespace
}  // namespace morvane
