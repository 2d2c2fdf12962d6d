// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/SubordinateUsers.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "TemporaryFolder.h"

namespace morvane {
namespace {

class SubordinateUsersTest : public testing::Test {
  protected:
    void write(const std::string& text) const { std::ofstream(file_) << text; }

    const TemporaryFolder temporary_;
    const std::filesystem::path& folder_ = temporary_.path();
    const std::filesystem::path file_ = folder_ / "subuid";
};

TEST_F(SubordinateUsersTest, WhoeverIsLentARangeIsAccountableForAllOfIt) {
    write("1000:100000:65536\n1001:165536:65536\n");
    SubordinateUsers users(file_);
    EXPECT_EQ(users.accountableFor(99999), 99999);
    EXPECT_EQ(users.accountableFor(100000), 1000);
    EXPECT_EQ(users.accountableFor(165535), 1000);
    EXPECT_EQ(users.accountableFor(165536), 1001);
    EXPECT_EQ(users.accountableFor(231072), 231072);
}

TEST_F(SubordinateUsersTest, AnOwnerMayBeToldByName) {
    write("nobody:100000:65536\n");
    EXPECT_EQ(SubordinateUsers(file_).accountableFor(100001), 65534);
}

TEST_F(SubordinateUsersTest, WhatIsLentToRootOrToNobodyKnownIsOneUserByItself) {
    write("root:100000:65536\nno such user:200000:65536\n");
    SubordinateUsers users(file_);
    EXPECT_EQ(users.accountableFor(100001), 100000);
    EXPECT_EQ(users.accountableFor(165535), 100000);
    EXPECT_EQ(users.accountableFor(200001), 200000);
}

TEST_F(SubordinateUsersTest, LinesThatAreNoneAreSkipped) {
    write("\n# comment\n1000:a:b\n1000:300000\n1000:-5:10\n1001:100000:65536\n");
    SubordinateUsers users(file_);
    EXPECT_EQ(users.accountableFor(100001), 1001);
    EXPECT_EQ(users.accountableFor(300000), 300000);
    EXPECT_EQ(users.accountableFor(0), 0);
}

TEST_F(SubordinateUsersTest, TheFileIsLookedAtAgainOnceItHasChanged) {
    SubordinateUsers users(file_);
    EXPECT_EQ(users.accountableFor(100001), 100001);
    write("1000:100000:65536\n");
    EXPECT_EQ(users.accountableFor(100001), 1000);
    write("1001:100000:65536\n1002:200000:65536\n");
    EXPECT_EQ(users.accountableFor(100001), 1001);
    std::filesystem::remove(file_);
    EXPECT_EQ(users.accountableFor(100001), 100001);
}

TEST_F(SubordinateUsersTest, TheFileIsNotLookedAtAgainUntilTheTimeHasPassed) {
    write("1000:100000:65536\n");
    SubordinateUsers users(file_, std::chrono::hours(1));
    EXPECT_EQ(users.accountableFor(100001), 1000);
    write("1001:100000:65536\n1002:200000:65536\n");
    EXPECT_EQ(users.accountableFor(100001), 1000);
}

TEST_F(SubordinateUsersTest, WhatIsKnownHoldsWhileTheFileCannotBeOpened) {
    write("1000:100000:65536\n");
    SubordinateUsers users(file_);
    EXPECT_EQ(users.accountableFor(100001), 1000);
    write("1001:100000:65536\n1002:200000:65536\n");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto meanwhile = users.accountableFor(100001);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(meanwhile, 1000);
    EXPECT_EQ(users.accountableFor(100001), 1001);
}

}  // namespace
}  // namespace morvane
