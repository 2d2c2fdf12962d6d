// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

class CBIdentity;

/// The user database, asked directly. Supplied by the system, or by a test.
class MORVANE_EXPORT UserDatabase {
  public:
    /// A user or a group: its uid or gid, and its name.
    struct Record {
        std::uint32_t id;
        std::string name;
        bool operator==(const Record&) const = default;
    };

    virtual ~UserDatabase();
    virtual std::optional<Record> userWithId(std::uint32_t uid) = 0;
    virtual std::optional<Record> userWithName(const std::string& name) = 0;
    virtual std::optional<Record> groupWithId(std::uint32_t gid) = 0;
    virtual std::optional<Record> groupWithName(const std::string& name) = 0;
    /// Every user (group) that the database will enumerate, in its order.
    virtual std::vector<Record> allUsers() = 0;
    virtual std::vector<Record> allGroups() = 0;
    /// The groups that the user is in, its own included; none of a user that it does not know.
    virtual std::vector<std::uint32_t> groupsOfUser(std::uint32_t uid) = 0;
    /// The short name of the user that this process runs as; empty if the uid has none.
    virtual std::string currentUserName() = 0;
};

/// The C library's name service switch. Defined by the Linux platform.
std::shared_ptr<UserDatabase> systemUserDatabase();

/// Where identities are looked up: the system's user database, with a short memory in front of it.
class MORVANE_EXPORT CBIdentityAuthority {
  public:
    static CBIdentityAuthority& defaultIdentityAuthority();

    using Clock = std::chrono::steady_clock;

    /// `now` is the clock by which remembered answers expire; a test may supply its own.
    explicit CBIdentityAuthority(std::shared_ptr<UserDatabase> database,
                                 std::function<Clock::time_point()> now = Clock::now);
    ~CBIdentityAuthority();

    /// For tests: replaces the database of this authority and forgets what was looked up. Null puts
    /// the system's back.
    void setDatabase(std::shared_ptr<UserDatabase> database);

    UserDatabase& database() const;

  private:
    friend class CBIdentity;
    struct MORVANE_INTERNAL State;
    std::unique_ptr<State> state_;
};

/// The short name of the logged-in user.
MORVANE_EXPORT std::string NSUserName();

}  // namespace morvane
