// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;

/// An archived entry in a file, which Python reads and writes by its own means.
struct MVAclEntryArchive : testing::Test {
    World world;
    const std::string path =
        (std::filesystem::temp_directory_path() / ("morvane-entry-" + std::to_string(::getpid())))
            .string();
    ~MVAclEntryArchive() override { std::filesystem::remove(path); }

    static std::shared_ptr<MVAclEntry> entry(bool directory) {
        auto made = MVAclEntry::newEntryForDirectory(directory);
        box(*made, 0, 1).setState(0);
        made->setTag(2);
        made->setInherited(true);
        return made;
    }
    int python(const std::string& mode) const {
        const auto uuid = uuidOfPosixIdentity(CBPosixUser{1000}).UUIDString();
        return std::system(("python3 '" MORVANE_ACL_TESTS "/acl_entry_archive.py' " + mode + " '" +
                            path + "' " + uuid)
                               .c_str());
    }
};

TEST_F(MVAclEntryArchive, HasTheKeysOfEntryNodeAndPermissionAndNoOther) {
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(*entry(true));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()),
               static_cast<std::streamsize>(data.size()));
    EXPECT_EQ(python("check"), 0);
}

TEST_F(MVAclEntryArchive, ThatAnotherHasWrittenIsRead) {
    ASSERT_EQ(python("write"), 0);
    std::ifstream in(path, std::ios::binary);
    const NSData data{std::istreambuf_iterator<char>(in), {}};
    NSErrorRef error;
    const auto back = std::static_pointer_cast<MVAclEntry>(
        NSKeyedUnarchiver::unarchivedObjectOfClasses({&MVAclEntry::classObject()}, data, &error));
    ASSERT_TRUE(back) << error->localizedDescription();
    const auto expected = entry(false);
    EXPECT_TRUE(back->isEqual(expected.get()));
    EXPECT_TRUE(expected->isEqual(back.get()));
    for (std::size_t group = 0; group < 3; ++group)
        EXPECT_EQ(names(*back, group), names(*expected, group));
    EXPECT_EQ(back->identity()->name(), "alice");
    EXPECT_EQ(back->permissionGroup(), 6);
}

}  // namespace
}  // namespace morvane
