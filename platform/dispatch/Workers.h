// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <mutex>

/// \file
/// The library's threads: a task runs on an idle worker thread, or on a new one if none is idle. A
/// task may block; a worker that stays idle ends after a while. Used by serial queues and
/// connections.

namespace morvane {

/// Runs `task` on a worker. Throws std::system_error if a thread is needed and cannot be started;
/// the task does not run then.
void runOnWorker(std::function<void()> task);

/// Runs `work`. The first task that it gives to runOnWorker() on this thread is not started but
/// returned; empty if there is none. It is for callers that run the task themselves because waking
/// another thread would cost too much.
std::function<void()> keepingFirstTask(const std::function<void()>& work);
/// Whether the next task that this thread gives to runOnWorker() would be kept for the caller.
bool keepsNextTask();

/// A task that has to be done even if there is neither memory nor a thread for it.
class LastingTask {
  public:
    virtual ~LastingTask();
    virtual void run() noexcept = 0;

  private:
    friend class LastingTasks;
    std::shared_ptr<LastingTask> next_;
};

/// A queue of lasting tasks. Adding one needs no memory, because the tasks themselves are linked;
/// so a task can be in one queue at a time only.
class LastingTasks {
  public:
    void add(std::shared_ptr<LastingTask> task) noexcept;
    /// Null if there is none.
    std::shared_ptr<LastingTask> takeFirst() noexcept;

  private:
    std::shared_ptr<LastingTask> first_;
    LastingTask* last_ = nullptr;
};

/// Starts the one thread that is kept in reserve for lasting tasks, unless it runs already. Throws
/// std::system_error or std::bad_alloc if it cannot be started.
void keepReserveWorker();
/// Runs the task on a worker, or on the reserve thread if no worker can be had; keepReserveWorker()
/// must have succeeded before. The task must not be waiting for the reserve thread already.
void runLasting(std::shared_ptr<LastingTask> task) noexcept;

/// Runs lasting tasks one after the other: however many there are, they share one thread, which is
/// needed only while there are any. Any thread.
class LastingLane final : public LastingTask, public std::enable_shared_from_this<LastingLane> {
  public:
    /// Queues the task. It must not be in another queue already, as for runLasting().
    void add(std::shared_ptr<LastingTask> task) noexcept;

  private:
    void run() noexcept override;

    std::mutex mutex_;
    LastingTasks waiting_;
    bool isRunning_ = false;
};

}  // namespace morvane
