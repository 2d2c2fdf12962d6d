#pragma once

#include <functional>
#include <memory>
#include <mutex>

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
    friend class LastingTasks;
    std::shared_ptr<LastingTask> next_;
};

/// Lasting tasks in their order. A task is in one of these at a time, for which nothing is needed.
class LastingTasks {
  public:
    void add(std::shared_ptr<LastingTask> task) noexcept;
    /// Null if there is none.
    std::shared_ptr<LastingTask> takeFirst() noexcept;

  private:
    std::shared_ptr<LastingTask> first_;
    LastingTask* last_ = nullptr;
};

/// Sees to it that there is the one thread that is kept for lasting tasks. Throws std::system_error
/// or std::bad_alloc if there is not.
void keepReserveWorker();
/// Runs the task on a worker, or on the reserve, which was kept before, if no worker can be had.
/// The task must not wait in it already.
void runLasting(std::shared_ptr<LastingTask> task) noexcept;

/// Runs lasting tasks one after the other: however many there are, they cost one thread together,
/// and that only while there are any. Any thread.
class LastingLane final : public LastingTask, public std::enable_shared_from_this<LastingLane> {
  public:
    /// As runLasting() takes it.
    void add(std::shared_ptr<LastingTask> task) noexcept;

  private:
    void run() noexcept override;

    std::mutex mutex_;
    LastingTasks waiting_;
    bool isRunning_ = false;
};

}  // namespace morvane
