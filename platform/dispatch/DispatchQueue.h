// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace morvane {

/// Queues of tasks that run one after the other, each to its end, in the order of submission.
///
///     auto queue = DispatchQueue::serialQueue("io.github.me.connector");
///     queue->async([] { redraw(); });
///
/// A serial queue runs its tasks on a worker thread while it has any; no thread is kept for an idle
/// one. Queued tasks keep the queue alive until they have run. The main queue runs its tasks on the
/// thread that runs the host's loop, each on a later turn of the loop than the one that submitted
/// it. async() may be called from any thread. A task should not throw: nobody could catch it, so
/// that the exception goes where NSUncaughtException.h says, which by default ends the process.
class MORVANE_EXPORT DispatchQueue {
  public:
    using Task = std::function<void()>;

    /// `label` may be null: an unlabelled queue.
    static std::shared_ptr<DispatchQueue> serialQueue(const char* label);
    static DispatchQueue& mainQueue();

    virtual ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    /// Throws std::system_error if the queue needs a thread and none can be had; the task does not
    /// run then, and the queue is as it was.
    virtual void async(Task task) = 0;
    /// Whether the caller is a task of this queue (for the main queue: on the loop's thread).
    virtual bool isCurrent() const = 0;

    const std::optional<std::string>& label() const;

  protected:
    explicit DispatchQueue(std::optional<std::string> label);

  private:
    std::optional<std::string> label_;
};

}  // namespace morvane
