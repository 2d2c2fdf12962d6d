// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>

#include "SupervisedWork.h"

namespace morvane {

/// How much of each user's work has been left and still goes on.
class WorkLeft {
  public:
    static WorkLeft& shared() {
        // For as long as the process: work that has been left may end later than everything else.
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
