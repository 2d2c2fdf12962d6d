// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

/// Runs tasks when a descriptor becomes ready. The descriptor itself wakes a worker, which runs the
/// task at once, so that no thread has to wake another. At most two workers are kept waiting for
/// all descriptors to read from, and two for those to write to.
namespace morvane {

/// If `alone`, no other thread can be started to wait in place of this one, and the task must not
/// block.
using ReadyTask = std::function<void(bool alone)>;

/// Runs `task` on a worker, once, when there is something to read or to accept on `descriptor`, or
/// it has been closed by the peer; it may also run earlier. The task has to keep the descriptor
/// open. If the descriptor cannot be waited for, this throws and never runs the task.
void runWhenReadable(int descriptor, ReadyTask task);
/// Does the same when `descriptor` can take more bytes, or has been closed by the peer.
void runWhenWritable(int descriptor, ReadyTask task);

/// Runs `task` each time, but not again before watchAgain(). Throws std::system_error if the
/// descriptor cannot be waited for.
void watchReadable(int descriptor, ReadyTask task);
/// Waits for the descriptor again; the task calls this, or somebody does after it has returned.
void watchAgain(int descriptor);
/// Forgets the descriptor's task, which may still be running or about to run.
void stopWatching(int descriptor);

}  // namespace morvane
