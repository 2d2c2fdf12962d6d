// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <chrono>
#include <cstdint>
#include <functional>

/// \file
/// One thread that watches the clock for everybody: work with a time limit needs no thread of its
/// own that waits.

namespace morvane {

/// Runs `task` at `time` or soon after it, on the clock's thread, one task at a time. A task must
/// be short, and must not throw. Throws std::system_error if the thread cannot be started; the task
/// is not kept then.
MORVANE_EXPORT void runAt(std::chrono::steady_clock::time_point time, std::function<void()> task);

/// A task that the clock keeps for as long as this object lives: a task that nobody needs any more
/// takes no memory, however far off its time is. Used by one thread at a time.
class ClockTask {
  public:
    /// Does and throws what runAt() does.
    ClockTask(std::chrono::steady_clock::time_point time, std::function<void()> task);
    /// Drops the task; it may be running, or about to run.
    ~ClockTask();
    ClockTask(const ClockTask&) = delete;
    ClockTask& operator=(const ClockTask&) = delete;

  private:
    const std::chrono::steady_clock::time_point time_;
    const std::uint64_t number_;
};

}  // namespace morvane
