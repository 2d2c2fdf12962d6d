// SPDX-License-Identifier: MIT
#include <future>

#include "ClientTestSupport.h"
#include "platform/fake/FakeUserDatabase.h"

/// Whom a host can offer while its user types.
namespace morvane {
namespace {

class ClientIdentities : public ClientTest {
  protected:
    std::vector<std::string> find(const std::string& text) {
        const auto found = waitFor<Result<std::vector<CBIdentityRef>>>(
            [&](auto completion) { client->identities(text, {}, completion); });
        std::vector<std::string> names;
        if (!found) {
            ADD_FAILURE() << found.error()->localizedDescription();
            return names;
        }
        for (const auto& identity : *found)
            names.push_back((identity->isGroup() ? "group " : "user ") + identity->name());
        return names;
    }

    using Names = std::vector<std::string>;
    FakeUserDatabaseInstallation database;
};

TEST_F(ClientIdentities, AreAllThereAreInOrderForAnEmptyText) {
    EXPECT_EQ(find(""), (Names{"user alice", "user bob", "group everyone", "user root",
                               "group root", "group staff", "group users"}));
}

TEST_F(ClientIdentities, WhoseNameIsMeantStandBeforeThoseItBeginsAndTheseBeforeThoseItIsIn) {
    database->users = {{1, "sam"}, {2, "Ada-Sam"}, {3, "samuel"}, {4, "eve"}};
    database->groups = {{5, "Sam"}, {6, "SAMBA"}};
    EXPECT_EQ(find("sam"),
              (Names{"user sam", "group Sam", "group SAMBA", "user samuel", "user Ada-Sam"}));
    EXPECT_EQ(find("nobody like that"), Names{});
}

TEST_F(ClientIdentities, OneThatADirectoryDoesNotListIsFoundByItsWholeName) {
    // Known by its name alone.
    class Directory final : public UserDatabase {
        std::optional<Record> userWithId(std::uint32_t) override { return std::nullopt; }
        std::optional<Record> userWithName(const std::string& name) override {
            return name == "far" ? std::optional(Record{7, name}) : std::nullopt;
        }
        std::optional<Record> groupWithId(std::uint32_t) override { return std::nullopt; }
        std::optional<Record> groupWithName(const std::string&) override { return std::nullopt; }
        std::vector<Record> allUsers() override { return {{8, "farther"}}; }
        std::vector<Record> allGroups() override { return {}; }
        std::vector<std::uint32_t> groupsOfUser(std::uint32_t) override { return {}; }
        std::string currentUserName() override { return ""; }
    };
    CBIdentityAuthority::defaultIdentityAuthority().setDatabase(std::make_shared<Directory>());
    EXPECT_EQ(find("fa"), Names{"user farther"});
    EXPECT_EQ(find("far"), (Names{"user far", "user farther"}));
}

TEST_F(ClientIdentities, AreNotMoreThanAnInterfaceCanShow) {
    for (std::uint32_t i = 0; i != 5000; ++i)
        database->users.push_back({10'000 + i, "user" + std::to_string(i)});
    EXPECT_EQ(find("user").size(), MVFileClient::mostIdentities);
    EXPECT_EQ(find("user4999"), Names{"user user4999"});
}

TEST_F(ClientIdentities, AreWaitedForByNobodyWhoHasCancelled) {
    // A directory that does not answer, until the end of the test.
    class Silent final : public UserDatabase {
      public:
        std::promise<void> asked;
        std::promise<void> ends;

      private:
        std::optional<Record> userWithId(std::uint32_t) override { return std::nullopt; }
        std::optional<Record> userWithName(const std::string&) override { return std::nullopt; }
        std::optional<Record> groupWithId(std::uint32_t) override { return std::nullopt; }
        std::optional<Record> groupWithName(const std::string&) override { return std::nullopt; }
        std::vector<Record> allUsers() override {
            asked.set_value();
            ends.get_future().wait();
            return {};
        }
        std::vector<Record> allGroups() override { return {}; }
        std::vector<std::uint32_t> groupsOfUser(std::uint32_t) override { return {}; }
        std::string currentUserName() override { return ""; }
    };
    const auto silent = std::make_shared<Silent>();
    CBIdentityAuthority::defaultIdentityAuthority().setDatabase(silent);
    std::stop_source stop;
    const auto found = waitFor<Result<std::vector<CBIdentityRef>>>([&](auto completion) {
        client->identities("", {.stop = stop.get_token()}, completion);
        silent->asked.get_future().wait();
        stop.request_stop();
    });
    ASSERT_FALSE(found);
    expectCancelled(found.error());
    // And what else the client does goes on.
    EXPECT_TRUE(read(makeFile("file")));
    silent->ends.set_value();
    EXPECT_EQ(find("every"), Names{"group everyone"});
}

}  // namespace
}  // namespace morvane
