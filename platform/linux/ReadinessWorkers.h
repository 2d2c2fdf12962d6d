#pragma once

#include <functional>

/// Tasks that wait for a descriptor. The descriptor itself wakes a worker, which runs the task at
/// once: no thread hands over to another. Two workers at most are kept waiting, for all
/// descriptors.
namespace morvane {

/// `alone`: no other thread can be had to wait in this one's place. The task must not block then.
using ReadableTask = std::function<void(bool alone)>;

/// Runs `task` on a worker, once, when there is something to read or to accept on `descriptor`, or
/// it has ended; maybe also earlier. The task has to keep the descriptor open. Throws, and does not
/// run it, if nothing can wait for the descriptor.
void runWhenReadable(int descriptor, ReadableTask task);

/// Runs `task` each time, but not again before watchAgain(). Throws std::system_error if nothing
/// can wait for the descriptor.
void watchReadable(int descriptor, ReadableTask task);
/// Called by the task, or after it.
void watchAgain(int descriptor);
/// Drops the descriptor's task. It may be running, or about to.
void stopWatching(int descriptor);

}  // namespace morvane
