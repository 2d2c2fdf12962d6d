// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// Whose user numbers are that are lent to others: a user whom /etc/subuid lends a range of them
/// has processes under all of these, by way of a user namespace, as often as it likes. Any thread.
class SubordinateUsers {
  public:
    explicit SubordinateUsers(std::string file) : file_(std::move(file)) {}

    /// The user who answers for what `user` does: the one whom its number is lent to, or itself.
    /// What is lent to root, for its containers, or to a user whom nobody knows is one user by
    /// itself, who has the first number of the range. Looks at the file again if it has changed.
    std::int64_t accountableFor(std::int64_t user);

    /// That of this system.
    static SubordinateUsers& ofTheSystem();

  private:
    struct Range {
        /// A name or a number.
        std::string owner;
        std::int64_t first;
        std::int64_t count;
        /// Once it was asked for.
        std::optional<std::int64_t> accountable;
    };

    /// Under the lock.
    void readIfChanged();
    static std::int64_t accountableOf(const Range& range);

    const std::string file_;
    std::mutex mutex_;
    /// As of which the ranges are.
    struct stat status_ {};
    std::vector<Range> ranges_;
};

}  // namespace morvane
