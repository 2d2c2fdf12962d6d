// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/foundation/NSUncaughtException.h>

#include <deque>
#include <mutex>
#include <string_view>
#include <utility>

namespace morvane {
namespace {

class SerialQueue final : public DispatchQueue, public std::enable_shared_from_this<SerialQueue> {
  public:
    explicit SerialQueue(std::optional<std::string> label) : DispatchQueue(std::move(label)) {}

    void async(Task task) override {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        if (running_)
            return;
        running_ = true;
        try {
            runOnWorker([self = shared_from_this()] { self->run(); });
        } catch (...) {
            // There is no thread to run the task: it is destroyed as the caller's argument, outside
            // the lock.
            task = std::move(tasks_.back());
            tasks_.pop_back();
            running_ = false;
            throw;
        }
    }

    bool isCurrent() const override { return current == this; }

  private:
    void run() noexcept {
        const auto* const outer = std::exchange(current, this);
        for (;;) {
            Task task;
            {
                const std::lock_guard lock(mutex_);
                if (tasks_.empty()) {
                    running_ = false;
                    break;
                }
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            callOut("task", label() ? std::string_view(*label()) : "(no label)", task);
        }
        current = outer;
    }

    static thread_local const SerialQueue* current;

    std::mutex mutex_;
    std::deque<Task> tasks_;
    bool running_ = false;
};

thread_local const SerialQueue* SerialQueue::current = nullptr;

class MainQueue final : public DispatchQueue {
  public:
    MainQueue() : DispatchQueue(std::nullopt) {}
    void async(Task task) override { MainLoop::current().runOnNextTurn(std::move(task)); }
    bool isCurrent() const override { return MainLoop::current().isLoopThread(); }
};

}  // namespace

DispatchQueue::DispatchQueue(std::optional<std::string> label) : label_(std::move(label)) {}

DispatchQueue::~DispatchQueue() = default;

std::shared_ptr<DispatchQueue> DispatchQueue::serialQueue(const char* label) {
    return std::make_shared<SerialQueue>(label ? std::optional<std::string>(label) : std::nullopt);
}

DispatchQueue& DispatchQueue::mainQueue() {
    static auto* const queue = new MainQueue;
    return *queue;
}

const std::optional<std::string>& DispatchQueue::label() const {
    return label_;
}

}  // namespace morvane
