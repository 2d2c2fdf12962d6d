#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <chrono>
#include <cstdint>
#include <functional>

/// One thread that looks at the clock for everybody: what has limited time costs no thread of its
/// own while it lasts.
namespace morvane {

/// Runs `task` at `time` or soon after it, on the clock's thread, one task at a time. A task must
/// be short, and must not throw. Throws std::system_error if the thread cannot be had; nothing is
/// kept then.
MORVANE_EXPORT void runAt(std::chrono::steady_clock::time_point time, std::function<void()> task);

/// A task that the clock has for as long as this stands: nothing of it stays once nobody needs it
/// any more, however far off its time is. For one thread at a time.
class ClockTask {
  public:
    /// Does and throws what runAt() does.
    ClockTask(std::chrono::steady_clock::time_point time, std::function<void()> task);
    /// Drops the task, which may be running, or about to.
    ~ClockTask();
    ClockTask(const ClockTask&) = delete;
    ClockTask& operator=(const ClockTask&) = delete;

  private:
    const std::chrono::steady_clock::time_point time_;
    const std::uint64_t number_;
};

}  // namespace morvane
