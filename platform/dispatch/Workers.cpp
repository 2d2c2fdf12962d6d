// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace morvane {
namespace {

/// How long an idle worker waits for another task.
constexpr auto idleTime = std::chrono::seconds(10);

class WorkerPool {
  public:
    void run(std::function<void()> task) {
        {
            std::unique_lock lock(mutex_);
            if (tasks_.size() < idle_) {
                tasks_.push_back(std::move(task));
                // Not under the lock: the thread that is woken up takes it first.
                lock.unlock();
                wake_.notify_one();
                return;
            }
        }
        std::thread([this, first = std::move(task)]() mutable { work(std::move(first)); }).detach();
    }

  private:
    void work(std::function<void()> task) {
        for (;;) {
            task();
            task = nullptr;  // what it holds goes outside the lock
            std::unique_lock lock(mutex_);
            if (tasks_.empty()) {
                ++idle_;
                const bool woken = wake_.wait_for(lock, idleTime, [&] { return !tasks_.empty(); });
                --idle_;
                if (!woken)
                    return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    std::size_t idle_ = 0;
};

/// One thread, one task after the other.
class ReserveWorker {
  public:
    void keep() {
        const std::lock_guard lock(mutex_);
        if (kept_)
            return;
        std::thread([this] { work(); }).detach();
        kept_ = true;
    }
    void run(std::shared_ptr<LastingTask> task) noexcept {
        const std::lock_guard lock(mutex_);
        tasks_.add(std::move(task));
        wake_.notify_one();
    }

    static ReserveWorker& shared() {
        static auto* const worker = new ReserveWorker;
        return *worker;
    }

  private:
    void work() {
        for (;;) {
            std::unique_lock lock(mutex_);
            std::shared_ptr<LastingTask> task;
            wake_.wait(lock, [&] { return (task = tasks_.takeFirst()) != nullptr; });
            lock.unlock();
            task->run();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    LastingTasks tasks_;
    bool kept_ = false;
};

/// Where this thread keeps its next task instead of giving it away.
thread_local std::function<void()>* kept = nullptr;

}  // namespace

std::function<void()> keepingFirstTask(const std::function<void()>& work) {
    std::function<void()> first;
    struct Keeping {
        std::function<void()>* const outer;
        explicit Keeping(std::function<void()>& place) : outer(std::exchange(kept, &place)) {}
        ~Keeping() { kept = outer; }
    } keeping(first);
    work();
    return first;
}

bool keepsNextTask() {
    return kept && !*kept;
}

void runOnWorker(std::function<void()> task) {
    if (keepsNextTask()) {
        *kept = std::move(task);
        return;
    }
    static auto* const pool = new WorkerPool;  // detached workers may outlive every static object
    pool->run(std::move(task));
}

LastingTask::~LastingTask() = default;

void LastingTasks::add(std::shared_ptr<LastingTask> task) noexcept {
    auto* const last = std::exchange(last_, task.get());
    (last ? last->next_ : first_) = std::move(task);
}

std::shared_ptr<LastingTask> LastingTasks::takeFirst() noexcept {
    auto task = std::move(first_);
    if (task)
        first_ = std::move(task->next_);
    if (!first_)
        last_ = nullptr;
    return task;
}

void keepReserveWorker() {
    ReserveWorker::shared().keep();
}

void runLasting(std::shared_ptr<LastingTask> task) noexcept {
    try {
        runOnWorker([task] { task->run(); });
    } catch (const std::exception&) {
        ReserveWorker::shared().run(std::move(task));
    }
}

void LastingLane::add(std::shared_ptr<LastingTask> task) noexcept {
    {
        const std::lock_guard lock(mutex_);
        waiting_.add(std::move(task));
        if (std::exchange(isRunning_, true))
            return;
    }
    runLasting(shared_from_this());
}

void LastingLane::run() noexcept {
    for (;;) {
        std::shared_ptr<LastingTask> task;
        {
            const std::lock_guard lock(mutex_);
            task = waiting_.takeFirst();
            if (!task) {
                isRunning_ = false;
                return;
            }
        }
        task->run();
    }
}

}  // namespace morvane
