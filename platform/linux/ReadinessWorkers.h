// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

/// Tasks that wait for a descriptor. The descriptor itself wakes a worker, which runs the task at
/// once: no thread hands over to another. Two workers at most are kept waiting to read, for all
/// descriptors, and two to write.
namespace morvane {

/// `alone`: no other thread can be had to wait in this one's place. The task must not block then.
using ReadyTask = std::function<void(bool alone)>;

/// Runs `task` on a worker, once, when there is something to read or to accept on `descriptor`, or
/// it has ended; maybe also earlier. The task has to keep the descriptor open. Throws, and does not
/// run it, if nothing can wait for the descriptor.
void runWhenReadable(int descriptor, ReadyTask task);
/// The same when `descriptor` has room for more, or has ended.
void runWhenWritable(int descriptor, ReadyTask task);

/// Runs `task` each time, but not again before watchAgain(). Throws std::system_error if nothing
/// can wait for the descriptor.
void watchReadable(int descriptor, ReadyTask task);
/// Called by the task, or after it.
void watchAgain(int descriptor);
/// Drops the descriptor's task. It may be running, or about to.
void stopWatching(int descriptor);

}  // namespace morvane
