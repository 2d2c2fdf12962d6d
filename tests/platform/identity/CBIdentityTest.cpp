// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentity.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <set>
#include <thread>

#include "platform/fake/FakeUserDatabase.h"

namespace morvane {
namespace {

constexpr std::uint32_t extremes[] = {0,     1,          255,        256,        65534,     65535,
                                      65536, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

class CBIdentityTest : public testing::Test {
  protected:
    std::shared_ptr<FakeUserDatabase> database = std::make_shared<FakeUserDatabase>();
    std::chrono::steady_clock::time_point now{};
    CBIdentityAuthority authority{database, [this] { return now; }};

    CBIdentityRef withUUID(const CBPosixIdentity& posix) const {
        return CBIdentity::identityWithUniqueIdentifier(uuidOfPosixIdentity(posix), authority);
    }
    CBIdentityRef withName(const std::string& name) const {
        return CBIdentity::identityWithName(name, authority);
    }
};

TEST_F(CBIdentityTest, AUserIsFoundByItsUuid) {
    const auto alice = withUUID(CBPosixUser{1000});
    ASSERT_TRUE(alice);
    EXPECT_EQ(alice->name(), "alice");
    EXPECT_FALSE(alice->isGroup());
    EXPECT_EQ(alice->uniqueIdentifier(), uuidOfPosixIdentity(CBPosixUser{1000}));
}

TEST_F(CBIdentityTest, AGroupIsFoundByItsUuid) {
    const auto staff = withUUID(CBPosixGroup{2000});
    ASSERT_TRUE(staff);
    EXPECT_EQ(staff->name(), "staff");
    EXPECT_TRUE(staff->isGroup());
}

TEST_F(CBIdentityTest, AUserAndAGroupAreFoundByTheirNames) {
    ASSERT_TRUE(withName("bob"));
    EXPECT_EQ(withName("bob")->uniqueIdentifier(), uuidOfPosixIdentity(CBPosixUser{1001}));
    ASSERT_TRUE(withName("users"));
    EXPECT_EQ(withName("users")->uniqueIdentifier(), uuidOfPosixIdentity(CBPosixGroup{100}));
    EXPECT_TRUE(withName("users")->isGroup());
}

TEST_F(CBIdentityTest, ANameThatAUserAndAGroupHaveIsTheUsers) {
    ASSERT_TRUE(withName("root"));
    EXPECT_FALSE(withName("root")->isGroup());
}

TEST_F(CBIdentityTest, WhoIsNotThereIsNull) {
    EXPECT_FALSE(withUUID(CBPosixUser{4711}));
    EXPECT_FALSE(withUUID(CBPosixGroup{4711}));
    EXPECT_FALSE(withName("nobody of that name"));
    EXPECT_FALSE(withName(""));
}

TEST_F(CBIdentityTest, AUuidOfSomeOtherKindIsNullAndTheDatabaseIsNotAsked) {
    EXPECT_FALSE(
        CBIdentity::identityWithUniqueIdentifier(NSUUID(NSUUID::Bytes{0x12, 0x34}), authority));
    EXPECT_EQ(database->lookups, 0);
}

TEST_F(CBIdentityTest, EveryoneIsAGroupOfItsOwnAndTheDatabaseIsNotAsked) {
    const auto everyone = withUUID(CBEveryone{});
    ASSERT_TRUE(everyone);
    EXPECT_EQ(everyone->name(), "everyone");
    EXPECT_TRUE(everyone->isGroup());
    EXPECT_EQ(withName("everyone"), everyone);
    EXPECT_EQ(database->lookups, 0);
}

TEST_F(CBIdentityTest, TheCreatorAndItsGroupAreIdentitiesOfTheirOwnAndTheDatabaseIsNotAsked) {
    for (const bool isGroup : {false, true}) {
        const auto creator = withUUID(CBCreator{isGroup});
        ASSERT_TRUE(creator);
        EXPECT_EQ(creator->name(), isGroup ? "creator group" : "creator");
        EXPECT_EQ(creator->isGroup(), isGroup);
        EXPECT_EQ(posixIdentityOfUUID(creator->uniqueIdentifier()),
                  CBPosixIdentity{CBCreator{isGroup}});
    }
    EXPECT_EQ(withName("creator"), nullptr) << "a user may have that name";
}

TEST_F(CBIdentityTest, IdentitiesAreEqualByTheirUuidsAlone) {
    const CBIdentity alice(uuidOfPosixIdentity(CBPosixUser{1000}), "alice", false);
    const CBIdentity renamed(uuidOfPosixIdentity(CBPosixUser{1000}), "alicia", false);
    const CBIdentity group(uuidOfPosixIdentity(CBPosixGroup{1000}), "alice", true);
    EXPECT_TRUE(alice.isEqual(&renamed));
    EXPECT_FALSE(alice.isEqual(&group));
    EXPECT_FALSE(alice.isEqual(nullptr));
    const NSObject object;
    EXPECT_FALSE(alice.isEqual(&object));
}

TEST_F(CBIdentityTest, AThousandLookUpsOfOneUserReadTheDatabaseOnce) {
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(withUUID(CBPosixUser{1000}));
    EXPECT_EQ(database->lookups, 1);
}

TEST_F(CBIdentityTest, AThousandLookUpsOfOneNameReadTheDatabaseOnce) {
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(withName("alice"));
    EXPECT_EQ(database->lookups, 1);
}

TEST_F(CBIdentityTest, AThousandLookUpsOfNobodyReadTheDatabaseOnce) {
    for (int i = 0; i < 1000; ++i)
        EXPECT_FALSE(withUUID(CBPosixUser{4711}));
    EXPECT_EQ(database->lookups, 1);
}

TEST_F(CBIdentityTest, WhatWasLookedUpIsForgottenAfterFiveSeconds) {
    EXPECT_TRUE(withUUID(CBPosixUser{1000}));
    EXPECT_FALSE(withName("carol"));
    database->users = {{1000, "alicia"}, {1002, "carol"}};
    now += std::chrono::seconds(5) - std::chrono::nanoseconds(1);
    EXPECT_EQ(withUUID(CBPosixUser{1000})->name(), "alice");
    EXPECT_FALSE(withName("carol"));
    now += std::chrono::nanoseconds(1);
    EXPECT_EQ(withUUID(CBPosixUser{1000})->name(), "alicia");
    EXPECT_TRUE(withName("carol"));
}

TEST_F(CBIdentityTest, ALookUpDoesNotProlongWhatIsRemembered) {
    for (int second = 0; second < 10; ++second) {
        EXPECT_TRUE(withUUID(CBPosixUser{1000}));
        now += std::chrono::seconds(1);
    }
    EXPECT_EQ(database->lookups, 2);
}

TEST_F(CBIdentityTest, WhatADirectoryWasSlowToSayIsRememberedAsLong) {
    database->whenUserIsAsked = [this] { now += std::chrono::seconds(6); };
    EXPECT_TRUE(withUUID(CBPosixUser{1000}));
    EXPECT_TRUE(withUUID(CBPosixUser{1000}));
    EXPECT_EQ(database->lookups, 1);
}

TEST_F(CBIdentityTest, AnotherDatabaseIsAskedAnew) {
    EXPECT_TRUE(withName("alice"));
    const auto other = std::make_shared<FakeUserDatabase>();
    other->users.clear();
    authority.setDatabase(other);
    EXPECT_FALSE(withName("alice"));
    EXPECT_FALSE(withUUID(CBPosixUser{1000}));
}

TEST_F(CBIdentityTest, WhatAFormerDatabaseSaysLateIsNotRemembered) {
    const auto other = std::make_shared<FakeUserDatabase>();
    other->users = {{1000, "alicia"}};
    database->whenUserIsAsked = [&] { authority.setDatabase(other); };
    EXPECT_EQ(withUUID(CBPosixUser{1000})->name(), "alice");
    EXPECT_EQ(withUUID(CBPosixUser{1000})->name(), "alicia");
}

TEST_F(CBIdentityTest, ManyDifferentNamesAreAllAnswered) {
    for (int i = 0; i < 10000; ++i)
        EXPECT_FALSE(withName("stranger" + std::to_string(i)));
    EXPECT_EQ(withName("alice")->name(), "alice");
    EXPECT_EQ(database->lookups, 2 * 10000 + 1);
}

TEST_F(CBIdentityTest, LookUpsFromManyThreadsGiveTheSameIdentity) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                EXPECT_EQ(withUUID(CBPosixUser{1000})->name(), "alice");
                EXPECT_EQ(withName("staff")->name(), "staff");
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST(CBPosixIdentity, UuidsLeadBackToTheUidOrGidTheyWereMadeOf) {
    for (const auto number : extremes) {
        EXPECT_EQ(posixIdentityOfUUID(uuidOfPosixIdentity(CBPosixUser{number})),
                  CBPosixIdentity(CBPosixUser{number}));
        EXPECT_EQ(posixIdentityOfUUID(uuidOfPosixIdentity(CBPosixGroup{number})),
                  CBPosixIdentity(CBPosixGroup{number}));
    }
    EXPECT_EQ(posixIdentityOfUUID(uuidOfPosixIdentity(CBEveryone{})),
              CBPosixIdentity(CBEveryone{}));
}

TEST(CBPosixIdentity, NoTwoOfThemShareAUuidAndEveryoneSharesItWithNone) {
    std::set<NSUUID> uuids{uuidOfPosixIdentity(CBEveryone{})};
    for (const auto number : extremes) {
        uuids.insert(uuidOfPosixIdentity(CBPosixUser{number}));
        uuids.insert(uuidOfPosixIdentity(CBPosixGroup{number}));
    }
    EXPECT_EQ(uuids.size(), 1 + 2 * std::size(extremes));
}

TEST(CBPosixIdentity, UuidsAreTheSameInEveryProcessAndOnEveryMachine) {
    EXPECT_EQ(uuidOfPosixIdentity(CBPosixUser{0x01020304}).UUIDString(),
              "6d6f7276-616e-8001-8000-000001020304");
    EXPECT_EQ(uuidOfPosixIdentity(CBPosixGroup{0xFFFFFFFF}).UUIDString(),
              "6d6f7276-616e-8002-8000-0000ffffffff");
    EXPECT_EQ(uuidOfPosixIdentity(CBEveryone{}).UUIDString(),
              "6d6f7276-616e-8003-8000-000000000000");
}

TEST(CBPosixIdentity, AUuidThatDiffersInAnyOtherBitIsNobodys) {
    const auto uuid = uuidOfPosixIdentity(CBPosixUser{1000});
    for (std::size_t at = 0; at < 12; ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            auto bytes = uuid.bytes();
            bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 1 << bit);
            const auto identity = posixIdentityOfUUID(NSUUID(bytes));
            EXPECT_NE(identity, std::optional(CBPosixIdentity(CBPosixUser{1000})));
            EXPECT_TRUE(!identity || at == 7) << at << ' ' << bit;
        }
    }
}

TEST(CBPosixIdentity, AUuidLikeEveryonesWithANumberIsNobodys) {
    auto bytes = uuidOfPosixIdentity(CBEveryone{}).bytes();
    bytes[15] = 1;
    EXPECT_FALSE(posixIdentityOfUUID(NSUUID(bytes)));
}

TEST(NSUserName, IsWhatTheDatabaseTells) {
    const FakeUserDatabaseInstallation database;
    database->userName = "bob";
    EXPECT_EQ(NSUserName(), "bob");
}

}  // namespace
}  // namespace morvane
