#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace morvane {

/// Counts the requests that are worked on. Any thread.
class RequestsAtWork {
  public:
    /// One request, from now on until the last copy of what this returns has gone.
    std::shared_ptr<void> begin() {
        const std::lock_guard lock(mutex_);
        ++begun_;
        return running_;
    }
    /// How many have begun so far, if none is worked on now.
    std::optional<std::uint64_t> begunWhileNoneRuns() const {
        const std::lock_guard lock(mutex_);
        return running_.use_count() == 1 ? std::optional(begun_) : std::nullopt;
    }

  private:
    mutable std::mutex mutex_;
    const std::shared_ptr<void> running_ = std::make_shared<int>();
    std::uint64_t begun_ = 0;
};

}  // namespace morvane
