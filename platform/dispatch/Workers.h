#pragma once

#include <functional>

/// The library's threads: a task runs on an idle worker thread, or on a new one if none is idle. A
/// task may block; an idle worker leaves after a while. Used by serial queues and connections.
namespace morvane {

void runOnWorker(std::function<void()> task);

}  // namespace morvane
