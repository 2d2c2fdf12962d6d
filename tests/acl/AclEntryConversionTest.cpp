// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;
using testing::ElementsAre;

struct MVAclEntryConversion : testing::Test {
    World world;
    std::shared_ptr<MVAclEntry> folder = MVAclEntry::newEntryForDirectory(true);
};

TEST_F(MVAclEntryConversion, AFileEntryIsConvertedToNeither) {
    const auto file = MVAclEntry::newEntryForDirectory(false);
    EXPECT_FALSE(file->convertInheritedToFileEntry());
    EXPECT_FALSE(file->convertInheritedToDirectoryEntry());
    EXPECT_FALSE(file->inherited());
    EXPECT_EQ(file->permissionGroup(), 2);
}

TEST_F(MVAclEntryConversion, AnEntryThatReachesNothingInsideStaysAsItIs) {
    EXPECT_FALSE(folder->convertInheritedToFileEntry());
    EXPECT_FALSE(folder->convertInheritedToDirectoryEntry());
    EXPECT_FALSE(folder->inherited());
    EXPECT_EQ(folder->permissions().size(), 4u);
}

TEST_F(MVAclEntryConversion, AFileInheritsTheFileCounterparts) {
    box(*folder, 3, 1).setState(1);
    box(*folder, 0, 1).setState(0);
    box(*folder, 1, 3).setState(0);
    ASSERT_EQ(box(*folder, 1).state(), -1);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    EXPECT_EQ(folder->permissions().size(), 3u);
    EXPECT_THAT(names(*folder, 0), ElementsAre("Read Data", "Execute File", "Read Attributes",
                                               "Read Extended Attributes", "Read Permissions"));
    EXPECT_THAT(names(*folder, 1), ElementsAre("Write Data", "Append Data", "Delete",
                                               "Write Attributes", "Write Extended Attributes"));
    EXPECT_THAT(states(*folder, 0), ElementsAre(1, 0, 1, 1, 1));
    EXPECT_THAT(states(*folder, 1), ElementsAre(1, 1, 1, 1, 1));
    EXPECT_EQ(box(*folder, 1).state(), -1);  // not resolved again
    EXPECT_EQ(folder->permissionGroup(), 6);
    EXPECT_EQ(world.loop->waiting(), 0u);  // stored, not chosen
    EXPECT_TRUE(folder->inherited());
    EXPECT_FALSE(box(*folder, 0, 0).settable());
    EXPECT_EQ(folder->applicableTo(), "This item");
    EXPECT_TRUE(folder->applicableToInitialized());
    EXPECT_FALSE(folder->updatingPermissions());
}

TEST_F(MVAclEntryConversion, AMixedChildFilesBoxCountsAsOn) {
    box(*folder, 3, 1).setState(-1);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
}

TEST_F(MVAclEntryConversion, AMixedChildFoldersBoxCountsAsOn) {
    box(*folder, 3, 2).setState(-1);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 0, 0, 0));
}

TEST_F(MVAclEntryConversion, AMixedAllDescendantsBoxCountsAsOn) {
    setApplicability(*folder, 0, 1, 1, -1);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 1, 1, -1));
}

TEST_F(MVAclEntryConversion, EachBoxDecidesForItsOwnKindOfItem) {
    setApplicability(*folder, 1, 0, 1, 1);
    EXPECT_FALSE(folder->convertInheritedToFileEntry());
    EXPECT_FALSE(folder->inherited());
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 0, 1, 1));
    setApplicability(*folder, 1, 1, 0, 0);
    EXPECT_FALSE(folder->convertInheritedToDirectoryEntry());
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
}

TEST_F(MVAclEntryConversion, NoBoxCanBeChangedAfterwards) {
    setApplicability(*folder, 0, 1, 1, 1);
    const auto settable = [&] {
        std::size_t count = 0;
        for (std::size_t i = 0; i != folder->permissions().size(); ++i) {
            count += box(*folder, i).settable();
            for (std::size_t j = 0; j != states(*folder, i).size(); ++j)
                count += box(*folder, i, j).settable();
        }
        return count;
    };
    EXPECT_EQ(settable(), 21u);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_EQ(settable(), 0u);
    folder->setInherited(false);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    EXPECT_EQ(settable(), 0u);
}

TEST_F(MVAclEntryConversion, AFilesEntryKeepsTheNodesOfTheFoldersGroups) {
    box(*folder, 3, 1).setState(1);
    auto before = folder->permissions();
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    before.pop_back();
    EXPECT_EQ(folder->permissions(), before);
}

TEST_F(MVAclEntryConversion, AFilesEntryHasNoTreeForAMoment) {
    struct Sizes final : NSKeyValueObserver {
        std::vector<std::size_t> told;
        void observeValueForKeyPath(const NSKeyPath&, NSObject& object) override {
            told.push_back(static_cast<MVAclEntry&>(object).permissions().size());
        }
    } sizes;
    box(*folder, 3, 1).setState(1);
    folder->addObserver(&sizes, MVAclEntry::permissionsKeyPath);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    folder->removeObserver(&sizes, MVAclEntry::permissionsKeyPath);
    EXPECT_THAT(sizes.told, ElementsAre(0, 3));
}

TEST_F(MVAclEntryConversion, AFilesEntryHearsNoMoreOfWhatWasTakenOut) {
    box(*folder, 3, 1).setState(1);
    const auto taken = folder->permissions()[1]->childNodes()[3];
    const auto appliesTo = folder->permissions()[3];
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    Recorder recorder;
    folder->addObserver(&recorder);
    MVTreeNode::setStateOf(*taken, 0);
    MVTreeNode::setStateOf(*appliesTo, 0);
    MVTreeNode::setStateOf(*appliesTo->childNodes()[0], 0);
    EXPECT_THAT(recorder.told, ElementsAre());
    box(*folder, 0, 0).setState(0);
    EXPECT_THAT(recorder.told, ElementsAre("permissionGroup"));
}

TEST_F(MVAclEntryConversion, AFilesEntryHasTheRawNamesInEveryLanguage) {
    box(*folder, 3, 1).setState(1);
    KDLocalizedString::setLookup(
        [](const std::string& key, const std::string&) { return "<" + key + ">"; });
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    KDLocalizedString::setLookup({});
    EXPECT_EQ(names(*folder, 0)[0], "Read Data");
    EXPECT_EQ(names(*folder, 0)[1], "Execute File");
    EXPECT_EQ(names(*folder, 1)[0], "Write Data");
    EXPECT_EQ(names(*folder, 1)[1], "Append Data");
    EXPECT_EQ(folder->applicableTo(), "<This item>");
}

TEST_F(MVAclEntryConversion, ASubFolderInheritsOneLevelOnly) {
    setApplicability(*folder, 0, 1, 1, 0);
    ASSERT_EQ(box(*folder, 3, 0).state(), 0);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 0, 0, 0));
    EXPECT_TRUE(folder->inherited());
    EXPECT_EQ(folder->permissionGroup(), 2);
    EXPECT_EQ(folder->applicableTo(), "This item");
}

TEST_F(MVAclEntryConversion, ASubFolderInheritsOnBelowWithAllDescendants) {
    setApplicability(*folder, 0, 1, 1, 1);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(states(*folder, 3), ElementsAre(1, 1, 1, 1));
    EXPECT_EQ(folder->applicableTo(), "This item, Child files, Child folders, All descendants");
}

TEST_F(MVAclEntryConversion, AnInheritedEntryIsConvertedTheSameWay) {
    setApplicability(*folder, 1, 1, 1, 1);
    folder->setInherited(true);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_TRUE(folder->inherited());
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    EXPECT_TRUE(folder->inherited());
}

TEST_F(MVAclEntryConversion, ASubFolderTellsTheCodeUpToThreeTimesThenTheInheritance) {
    setApplicability(*folder, 0, 1, 1, 0);
    Recorder recorder;
    folder->addObserver(&recorder);
    EXPECT_TRUE(folder->convertInheritedToDirectoryEntry());
    EXPECT_THAT(recorder.told,
                ElementsAre("permissionGroup", "permissionGroup", "permissionGroup", "inherited"));
}

TEST_F(MVAclEntryConversion, AFileTellsTheInheritanceThenTheCode) {
    box(*folder, 3, 1).setState(1);
    Recorder recorder;
    folder->addObserver(&recorder);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    EXPECT_THAT(recorder.told, ElementsAre("inherited", "permissionGroup"));
}

TEST_F(MVAclEntryConversion, ConvertingForAFileClearsTheGuardOfAWaitingTask) {
    box(*folder, 3, 1).setState(1);
    folder->setPermissionGroup(3);
    folder->setPermissionGroup(6);
    EXPECT_TRUE(folder->convertInheritedToFileEntry());
    EXPECT_FALSE(folder->updatingPermissions());
    world.loop->turn();
    EXPECT_EQ(folder->permissionGroup(), 3);
}

TEST_F(MVAclEntryConversion, TreesOfAnotherShapeEndInARangeException) {
    const auto odd = [](std::size_t read, std::size_t write, std::size_t boxes) {
        return MVAclEntry::initWithUuid(
            {}, 1,
            {node("a", 2, 1, std::vector<std::int64_t>(read, 1)),
             node("b", 2, 1, std::vector<std::int64_t>(write, 1)), node("c", 2, 1),
             node("d", 2, 1, std::vector<std::int64_t>(boxes, 1))},
            false);
    };
    const auto forFile = [](const std::shared_ptr<MVAclEntry>& entry) {
        return exceptionName([&] { entry->convertInheritedToFileEntry(); });
    };
    const auto forFolder = [](const std::shared_ptr<MVAclEntry>& entry) {
        return exceptionName([&] { entry->convertInheritedToDirectoryEntry(); });
    };
    EXPECT_EQ(forFile(odd(2, 4, 0)), "NSRangeException");
    EXPECT_EQ(forFile(odd(2, 4, 1)), "NSRangeException");
    EXPECT_EQ(forFile(odd(1, 4, 4)), "NSRangeException");
    EXPECT_EQ(forFile(odd(2, 1, 4)), "NSRangeException");
    const auto left = odd(2, 3, 4);
    EXPECT_EQ(forFile(left), "NSRangeException");
    EXPECT_TRUE(left->permissions().empty());
    EXPECT_EQ(forFile(odd(2, 4, 2)), "none");
    EXPECT_EQ(forFolder(odd(2, 4, 2)), "NSRangeException");
    EXPECT_EQ(forFolder(odd(2, 4, 3)), "NSRangeException");
    EXPECT_EQ(forFolder(odd(0, 0, 4)), "none");
}

}  // namespace
}  // namespace morvane
