// SPDX-License-Identifier: MIT
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EditedItem.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using acltest::states;

constexpr std::uint32_t owner = 4801;
constexpr std::uint32_t group = 4802;
constexpr std::uint32_t bob = 4803;

/// Where this program cannot look.
NSURL outOfReach() {
    return NSURL::fileURLWithPath("/proc/1/nowhere/item");
}

PosixAcl aclOf(bool isDirectory) {
    return {owner, group, isDirectory, {PosixEverything, PosixRead, PosixNothing, {}, {}, {}}, {}};
}

EntryList entriesOf(bool isDirectory) {
    return entriesOfPosixAcl(aclOf(isDirectory));
}

class AnEditedItem : public testing::Test {
  protected:
    /// A service that looks at an item of that kind and counts how often it is asked.
    AccessSource service(bool isDirectory) {
        return [=, this](const NSURL&, const NSUUID&) {
            ++asked_;
            return Result<PermissionList>(permissionTree(0, isDirectory));
        };
    }
    AccessSource refusingService() {
        return [this](const NSURL& url, const NSUUID&) {
            ++asked_;
            return Result<PermissionList>(Failure{
                NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES, {{NSURLErrorKey, url}})});
        };
    }

    acltest::World world_;
    int asked_ = 0;
};

TEST_F(AnEditedItem, IsAFolderIfAnEntryOfItsListAppliesToWhatIsBelow) {
    auto acl = aclOf(true);
    acl.access.users = {{bob, PosixRead}};
    EditedItem item(outOfReach(), entriesOfPosixAcl(acl), service(false));
    EXPECT_TRUE(*item.isFolder());
    EXPECT_EQ(asked_, 0);
}

TEST_F(AnEditedItem, IsAFileIfAnEntryOfItsListHasAFilesTree) {
    auto acl = aclOf(false);
    acl.access.users = {{bob, PosixRead}};
    EditedItem item(outOfReach(), entriesOfPosixAcl(acl), service(true));
    EXPECT_FALSE(*item.isFolder());
    EXPECT_EQ(asked_, 0);
}

TEST_F(AnEditedItem, InReachIsLookedAtAndNoServiceAsked) {
    EditedItem item(NSURL::fileURLWithPath("/"), entriesOf(true), service(false));
    EXPECT_TRUE(*item.isFolder());
    EXPECT_EQ(asked_, 0);
}

TEST_F(AnEditedItem, OutOfReachIsAFolderIfTheServiceShowsAFoldersBoxes) {
    EditedItem item(outOfReach(), entriesOf(true), service(true));
    EXPECT_TRUE(*item.isFolder());
    EXPECT_TRUE(*item.isFolder());
    EXPECT_EQ(asked_, 1) << "once is enough";
}

TEST_F(AnEditedItem, OutOfReachIsAFileIfTheServiceShowsAFilesBoxes) {
    EditedItem item(outOfReach(), entriesOf(false), service(false));
    EXPECT_FALSE(*item.isFolder());
}

TEST_F(AnEditedItem, OutOfReachOfTheServiceHasNoKind) {
    EditedItem item(outOfReach(), entriesOf(true), refusingService());
    const auto folder = item.isFolder();
    ASSERT_FALSE(folder);
    EXPECT_EQ(folder.error()->code(), EACCES);
}

}  // namespace
}  // namespace morvane
