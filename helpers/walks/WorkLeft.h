// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>

#include "SupervisedWork.h"

namespace morvane {

/// Counts the work of each user that has been left and still continues.
class WorkLeft {
  public:
    static WorkLeft& shared() {
        // The one of this process, which is never destroyed: work that has been left may end after
        // everything else.
        static auto& left = *new WorkLeft;
        return left;
    }
    bool isFull(std::uint32_t user) {
        const std::lock_guard lock(mutex_);
        const auto found = counts_.find(user);
        return found != counts_.end() && found->second >= maxWorkLeft;
    }
    /// False if there is no memory to count it; it is not removed then.
    bool add(std::uint32_t user) noexcept {
        const std::lock_guard lock(mutex_);
        try {
            ++counts_[user];
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
    void remove(std::uint32_t user) {
        const std::lock_guard lock(mutex_);
        if (--counts_[user] == 0)
            counts_.erase(user);
    }

  private:
    std::mutex mutex_;
    std::map<std::uint32_t, std::size_t> counts_;
};

}  // namespace morvane
