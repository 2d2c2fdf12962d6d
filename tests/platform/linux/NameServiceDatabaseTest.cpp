// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "TemporaryFolder.h"

namespace morvane {
namespace {

/// A user database of this test's own, in a process that sees nothing else.
class NameServiceDatabaseTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "the tests of the user database put another in its place";
        write("passwd",
              "root:x:0:0:root:/root:/bin/sh\n"
              "alice:x:1000:1000::/:/bin/sh\n"
              "largest:x:4294967294:1000::/:/bin/sh\n");
        std::string members = "m0";
        for (int i = 1; i < 5000; ++i)
            members += ",m" + std::to_string(i);
        write("group", "root:x:0:\nstaff:x:50:alice\ncrowd:x:60:" + members + "\n");
        write("nsswitch.conf", "passwd: files\ngroup: files\n");
    }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(folder / name) << text;
    }

    /// Whether `test` holds there; the process becomes `user` first.
    bool holds(const std::function<bool(UserDatabase&)>& test, uid_t user = 0) const {
        const auto child = fork();
        if (child == 0) {
            bool good = unshare(CLONE_NEWNS) == 0 &&
                        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
            for (const std::string name : {"passwd", "group", "nsswitch.conf"}) {
                good = good && mount((folder / name).c_str(), ("/etc/" + name).c_str(), nullptr,
                                     MS_BIND, nullptr) == 0;
            }
            good = good && setuid(user) == 0;
            _exit(good && test(*systemUserDatabase()) ? 0 : 1);
        }
        int status = -1;
        return waitpid(child, &status, 0) == child && status == 0;
    }

    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

using Record = UserDatabase::Record;

bool is(const std::optional<Record>& record, std::uint32_t id, const std::string& name) {
    return record && record->id == id && record->name == name;
}

TEST_F(NameServiceDatabaseTest, AUserIsFoundByNumberAndByName) {
    EXPECT_TRUE(holds([](auto& users) {
        return is(users.userWithId(1000), 1000, "alice") &&
               is(users.userWithName("alice"), 1000, "alice");
    }));
}

TEST_F(NameServiceDatabaseTest, AGroupIsFoundByNumberAndByName) {
    EXPECT_TRUE(holds([](auto& users) {
        return is(users.groupWithId(50), 50, "staff") &&
               is(users.groupWithName("staff"), 50, "staff");
    }));
}

TEST_F(NameServiceDatabaseTest, TheLargestNumberIsAUsersToo) {
    EXPECT_TRUE(
        holds([](auto& users) { return is(users.userWithId(4294967294), 4294967294, "largest"); }));
}

TEST_F(NameServiceDatabaseTest, WhoIsNotThereIsNobody) {
    EXPECT_TRUE(holds([](auto& users) {
        return !users.userWithId(4711) && !users.userWithName("nobody-of-that-name") &&
               !users.userWithName("") && !users.groupWithId(4711) && !users.groupWithName("alice");
    }));
}

TEST_F(NameServiceDatabaseTest, AGroupOfThousandsIsFoundHoweverLongItsRecordIs) {
    EXPECT_TRUE(holds([](auto& users) {
        return is(users.groupWithId(60), 60, "crowd") &&
               is(users.groupWithName("crowd"), 60, "crowd");
    }));
}

TEST_F(NameServiceDatabaseTest, AUsersGroupsAreItsOwnAndThoseThatItIsAMemberOf) {
    EXPECT_TRUE(holds([](UserDatabase& database) {
        auto groups = database.groupsOfUser(1000);
        std::sort(groups.begin(), groups.end());
        return groups == std::vector<std::uint32_t>{50, 1000} &&
               database.groupsOfUser(1001).empty();
    }));
}

TEST_F(NameServiceDatabaseTest, ListsAllInTheOrderOfTheDatabaseEachTime) {
    EXPECT_TRUE(holds([](auto& users) {
        const auto names = [](const std::vector<Record>& records) {
            std::string all;
            for (const auto& record : records)
                all += record.name + " ";
            return all;
        };
        return names(users.allUsers()) == "root alice largest " &&
               names(users.allUsers()) == "root alice largest " &&
               names(users.allGroups()) == "root staff crowd ";
    }));
}

TEST_F(NameServiceDatabaseTest, TheCurrentUserIsTheProcesss) {
    const auto isCalled = [](const std::string& name) {
        return [name](auto& users) { return users.currentUserName() == name; };
    };
    EXPECT_TRUE(holds(isCalled("root")));
    EXPECT_TRUE(holds(isCalled("alice"), 1000));
    EXPECT_TRUE(holds(isCalled(""), 4711));
}

}  // namespace
}  // namespace morvane
