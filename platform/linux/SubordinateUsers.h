// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// Determines who is responsible for a subordinate user id. A user to whom /etc/subuid grants a
/// range of ids can run processes under each of them, in a user namespace, as often as they like.
/// The object may be used on any thread.
class SubordinateUsers {
  public:
    /// A change of the file counts at the latest when `staleTime` has passed.
    explicit SubordinateUsers(std::string file, std::chrono::milliseconds staleTime = {})
        : file_(std::move(file)), staleTime_(staleTime) {}

    /// Returns the user who is responsible for what `user` does: the one to whom the id is granted,
    /// or `user` itself. A range that is granted to root, for its containers, or to an unknown user
    /// counts as one user, who has the first id of the range. The file is read again if it has
    /// changed.
    std::int64_t accountableFor(std::int64_t user);

    /// The instance for this system's file.
    static SubordinateUsers& ofTheSystem();

  private:
    struct Range {
        /// The owner, as a name or an id.
        std::string owner;
        std::int64_t first;
        std::int64_t count;
        /// The owner's id, once it was looked up.
        std::optional<std::int64_t> accountable;
    };

    /// Reads the file if it has changed; to be called with the lock held.
    void readIfChanged();
    static std::int64_t accountableOf(const Range& range);

    const std::string file_;
    const std::chrono::milliseconds staleTime_;
    std::mutex mutex_;
    /// When to look at the file again.
    std::chrono::steady_clock::time_point nextLook_;
    /// The state of the file from which the ranges were read.
    struct stat status_ {};
    std::vector<Range> ranges_;
};

}  // namespace morvane
