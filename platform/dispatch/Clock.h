#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <chrono>
#include <functional>

/// One thread that looks at the clock for everybody: what has limited time costs no thread of its
/// own while it lasts.
namespace morvane {

/// Runs `task` at `time` or soon after it, on the clock's thread, one task at a time. A task must
/// be short, and must not throw. Throws std::system_error if the thread cannot be had; nothing is
/// kept then.
MORVANE_EXPORT void runAt(std::chrono::steady_clock::time_point time, std::function<void()> task);

}  // namespace morvane
