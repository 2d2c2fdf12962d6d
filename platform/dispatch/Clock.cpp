// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Clock.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <ratio>
#include <thread>
#include <utility>

namespace morvane {
namespace {

/// The thread wakes up no more often than this and then runs all tasks that are due: each client
/// that connects to a service and leaves has a task here.
using Tick = std::chrono::duration<std::int64_t, std::ratio<1, 200>>;

class Clock {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// Returns the task's number.
    std::uint64_t add(Time time, std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        if (!started_) {
            std::thread([this] { run(); }).detach();
            started_ = true;
        }
        tasks_.emplace(std::pair(time, ++count_), std::move(task));
        if (time < wakes_) {
            wakes_ = time;
            changed_.notify_one();
        }
        return count_;
    }

    void drop(Time time, std::uint64_t number) {
        Tasks::node_type dropped;  // what it holds goes outside the lock
        const std::lock_guard lock(mutex_);
        dropped = tasks_.extract({time, number});
    }

  private:
    /// The tasks, sorted by their times and then by their numbers.
    using Tasks = std::map<std::pair<Time, std::uint64_t>, std::function<void()>>;

    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            const auto now = std::chrono::steady_clock::now();
            const auto next = tasks_.empty() ? Time::max() : tasks_.begin()->first.first;
            if (next <= now) {
                wakes_ = Time::min();  // it looks again when the task has run
                auto due = tasks_.extract(tasks_.begin());
                lock.unlock();
                due.mapped()();
                due = {};  // what it holds goes outside the lock
                lock.lock();
                continue;
            }
            // Also if the task that it was woken for has been dropped meanwhile: the next one like
            // it does not wake it again.
            wakes_ = wakes_ <= now ? next : std::min(wakes_, next);
            if (wakes_ == Time::max())
                changed_.wait(lock);
            else
                changed_.wait_until(lock, wakes_);
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    Tasks tasks_;
    /// When the thread looks at the tasks without being woken. Most tasks are dropped before their
    /// time: each client's first request has one, and few of them wake the thread.
    Time wakes_ = Time::min();
    std::uint64_t count_ = 0;
    bool started_ = false;
};

Clock& clock() {
    static auto* const clock = new Clock;  // its thread outlives static objects
    return *clock;
}

}  // namespace

void runAt(std::chrono::steady_clock::time_point time, std::function<void()> task) {
    clock().add(std::chrono::ceil<Tick>(time), std::move(task));
}

ClockTask::ClockTask(std::chrono::steady_clock::time_point time, std::function<void()> task)
    : time_(std::chrono::ceil<Tick>(time)), number_(clock().add(time_, std::move(task))) {}

ClockTask::~ClockTask() {
    clock().drop(time_, number_);
}

}  // namespace morvane
