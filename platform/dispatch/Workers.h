#pragma once

#include <functional>

/// The library's threads: a task runs on an idle worker thread, or on a new one if none is idle. A
/// task may block; an idle worker leaves after a while. Used by serial queues and connections.
namespace morvane {

/// Throws std::system_error if a thread is needed and cannot be had; the task does not run then.
void runOnWorker(std::function<void()> task);

/// Runs `work`, and returns the first task that it gives to runOnWorker() on this thread instead of
/// starting it; empty if there is none. The caller runs it itself, where waking another thread
/// would cost too much.
std::function<void()> keepingFirstTask(const std::function<void()>& work);
/// Whether the next task that this thread gives to runOnWorker() is kept so.
bool keepsNextTask();

}  // namespace morvane
