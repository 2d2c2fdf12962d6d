#pragma once

#include <functional>
#include <memory>

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

/// What has to be done although there may be neither memory nor a thread for it.
class LastingTask {
  public:
    virtual ~LastingTask();
    virtual void run() noexcept = 0;

  private:
    friend class ReserveWorker;
    std::shared_ptr<LastingTask> next_;
};

/// Sees to it that there is the one thread that is kept for lasting tasks. Throws std::system_error
/// or std::bad_alloc if there is not.
void keepReserveWorker();
/// Runs the task on a worker, or on the reserve, which was kept before, if no worker can be had.
/// The task must not wait in it already.
void runLasting(std::shared_ptr<LastingTask> task) noexcept;

}  // namespace morvane
