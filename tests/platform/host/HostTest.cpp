// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>
#include <MorvaneOperation/platform/host/FileAccess.h>
#include <MorvaneOperation/platform/host/Log.h>
#include <MorvaneOperation/platform/host/MVIdentities.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/fake/FakeUserDatabase.h"

namespace morvane {
namespace {

std::vector<std::string> names(const MVIdentities::List& list) {
    std::vector<std::string> all;
    for (const auto& identity : list)
        all.push_back((identity->isGroup() ? "@" : "") + identity->name());
    return all;
}

using Names = std::vector<std::string>;

class MVIdentitiesTest : public testing::Test {
  protected:
    ~MVIdentitiesTest() override { MVIdentities::setSharedIdentities(nullptr); }
    FakeUserDatabaseInstallation database;
};

TEST_F(MVIdentitiesTest, TheUsersAreThoseOfTheDatabaseInItsOrder) {
    const auto users = MVIdentities::sharedIdentities().fullNamedUsers();
    EXPECT_EQ(names(users), (Names{"root", "alice", "bob"}));
    EXPECT_EQ(users[1]->uniqueIdentifier(), uuidOfPosixIdentity(CBPosixUser{1000}));
}

TEST_F(MVIdentitiesTest, EveryoneIsTheFirstOfTheGroups) {
    const auto groups = MVIdentities::sharedIdentities().fullNamedGroups();
    EXPECT_EQ(names(groups), (Names{"@everyone", "@root", "@users", "@staff"}));
    EXPECT_EQ(groups[0]->uniqueIdentifier(), uuidOfPosixIdentity(CBEveryone{}));
    EXPECT_EQ(groups[3]->uniqueIdentifier(), uuidOfPosixIdentity(CBPosixGroup{2000}));
}

TEST_F(MVIdentitiesTest, AllAreTheUsersAndThenTheGroups) {
    EXPECT_EQ(names(MVIdentities::sharedIdentities().fullNamedIdentities()),
              (Names{"root", "alice", "bob", "@everyone", "@root", "@users", "@staff"}));
}

TEST_F(MVIdentitiesTest, TheListsAreReadAnewEachTime) {
    EXPECT_EQ(MVIdentities::sharedIdentities().fullNamedUsers().size(), 3U);
    database->users.push_back({1002, "carol"});
    EXPECT_EQ(MVIdentities::sharedIdentities().fullNamedUsers().size(), 4U);
}

/// A host with a list of its own.
class HostIdentities final : public MVIdentities {
  public:
    List users;
    List fullNamedUsers() override { return users; }
    void add(std::uint32_t uid, const std::string& name) {
        users.push_back(
            std::make_shared<const CBIdentity>(uuidOfPosixIdentity(CBPosixUser{uid}), name, false));
        NSNotificationCenter::defaultCenter().postNotificationName(MVIdentitiesUpdated);
    }
};

TEST_F(MVIdentitiesTest, AHostsListsTakeThePlaceOfTheDefaultUntilTheyAreTakenAway) {
    const auto host = std::make_shared<HostIdentities>();
    MVIdentities::setSharedIdentities(host);
    host->add(5, "eve");
    auto& shared = MVIdentities::sharedIdentities();
    EXPECT_EQ(names(shared.fullNamedUsers()), (Names{"eve"}));
    EXPECT_EQ(names(shared.fullNamedIdentities()).front(), "eve");
    MVIdentities::setSharedIdentities(nullptr);
    EXPECT_EQ(names(MVIdentities::sharedIdentities().fullNamedUsers()).front(), "root");
}

TEST_F(MVIdentitiesTest, WhoObservesTheUpdateSeesTheNewLists) {
    const auto host = std::make_shared<HostIdentities>();
    MVIdentities::setSharedIdentities(host);
    std::vector<Names> seen;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        "MVIdentitiesUpdated", [&](const NSNotification&) {
            seen.push_back(names(MVIdentities::sharedIdentities().fullNamedUsers()));
        });
    host->add(5, "eve");
    host->add(6, "mallory");
    EXPECT_EQ(seen, (std::vector<Names>{{"eve"}, {"eve", "mallory"}}));
}

TEST(Log, ALineGoesToStandardErrorWithItsEnd) {
    testing::internal::CaptureStderr();
    logLine("Not installed");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Not installed\n");
}

TEST(Log, AListenerGetsTheLineInsteadUntilItIsTakenAway) {
    Names lines;
    setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    testing::internal::CaptureStderr();
    logLine("one");
    setLogSink({});
    logLine("two");
    EXPECT_EQ(lines, (Names{"one"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "two\n");
}

TEST(Log, AListenerMayLog) {
    Names lines;
    setLogSink([&](std::string_view line) {
        lines.emplace_back(line);
        if (line == "outer")
            logLine("inner");
    });
    logLine("outer");
    setLogSink({});
    EXPECT_EQ(lines, (Names{"outer", "inner"}));
}

TEST(FileAccess, TellsWhatTheKernelAllows) {
    auto& access = FileAccess::current();
    EXPECT_EQ(access.access("/", 4), 0);
    EXPECT_EQ(access.access("/nowhere/at all", 4), ENOENT);
    EXPECT_EQ(access.access("/dev/null/x", 6), ENOTDIR);
    EXPECT_EQ(access.access("", 4), ENOENT);
}

TEST(FileAccess, AReplacementIsAskedUntilItIsTakenAway) {
    struct Refusing final : FileAccess {
        int access(const char*, int mode) override { return mode == 4 ? 0 : EACCES; }
    };
    FileAccess::setCurrent(std::make_shared<Refusing>());
    EXPECT_EQ(FileAccess::current().access("/nowhere/at all", 4), 0);
    EXPECT_EQ(FileAccess::current().access("/nowhere/at all", 2), EACCES);
    FileAccess::setCurrent(nullptr);
    EXPECT_EQ(FileAccess::current().access("/nowhere/at all", 4), ENOENT);
}

}  // namespace
}  // namespace morvane
