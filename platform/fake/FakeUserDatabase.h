// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// A user database that a test fills, and that counts what it is asked.
class FakeUserDatabase final : public UserDatabase {
  public:
    std::vector<Record> users{{0, "root"}, {1000, "alice"}, {1001, "bob"}};
    std::vector<Record> groups{{0, "root"}, {100, "users"}, {2000, "staff"}};
    std::string userName = "alice";
    /// The groups of those users that are in any.
    std::map<std::uint32_t, std::vector<std::uint32_t>> memberships;
    std::atomic<int> lookups = 0;
    std::atomic<int> groupLookups = 0;
    std::function<void()> whenGroupsAreAsked = [] {};
    std::function<void()> whenUserIsAsked = [] {};

    std::optional<Record> userWithId(std::uint32_t uid) override {
        whenUserIsAsked();
        return byId(users, uid);
    }
    std::optional<Record> userWithName(const std::string& name) override {
        return byName(users, name);
    }
    std::optional<Record> groupWithId(std::uint32_t gid) override { return byId(groups, gid); }
    std::optional<Record> groupWithName(const std::string& name) override {
        return byName(groups, name);
    }
    std::vector<Record> allUsers() override { return users; }
    std::vector<Record> allGroups() override { return groups; }
    std::vector<std::uint32_t> groupsOfUser(std::uint32_t uid) override {
        ++groupLookups;
        whenGroupsAreAsked();
        const auto found = memberships.find(uid);
        return found == memberships.end() ? std::vector<std::uint32_t>{} : found->second;
    }
    std::string currentUserName() override { return userName; }

  private:
    std::optional<Record> byId(const std::vector<Record>& records, std::uint32_t id) {
        ++lookups;
        const auto found =
            std::find_if(records.begin(), records.end(), [&](auto& r) { return r.id == id; });
        return found == records.end() ? std::nullopt : std::optional(*found);
    }
    std::optional<Record> byName(const std::vector<Record>& records, const std::string& name) {
        ++lookups;
        const auto found =
            std::find_if(records.begin(), records.end(), [&](auto& r) { return r.name == name; });
        return found == records.end() ? std::nullopt : std::optional(*found);
    }
};

/// Puts a FakeUserDatabase under the default authority for as long as it lives.
class FakeUserDatabaseInstallation {
  public:
    FakeUserDatabaseInstallation() {
        CBIdentityAuthority::defaultIdentityAuthority().setDatabase(database_);
    }
    ~FakeUserDatabaseInstallation() {
        CBIdentityAuthority::defaultIdentityAuthority().setDatabase(nullptr);
    }
    FakeUserDatabaseInstallation(const FakeUserDatabaseInstallation&) = delete;
    FakeUserDatabaseInstallation& operator=(const FakeUserDatabaseInstallation&) = delete;
    FakeUserDatabase* operator->() const { return database_.get(); }

  private:
    std::shared_ptr<FakeUserDatabase> database_ = std::make_shared<FakeUserDatabase>();
};

}  // namespace morvane
