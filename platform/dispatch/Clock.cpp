#include <MorvaneOperation/platform/dispatch/Clock.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace morvane {
namespace {

class Clock {
  public:
    using Time = std::chrono::steady_clock::time_point;

    void add(Time time, std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        if (!started_) {
            std::thread([this] { run(); }).detach();
            started_ = true;
        }
        const bool isNext = tasks_.empty() || time < tasks_.begin()->first;
        tasks_.emplace(time, std::move(task));
        if (isNext)
            changed_.notify_one();
    }

  private:
    void run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            if (tasks_.empty()) {
                changed_.wait(lock);
            } else if (const auto next = tasks_.begin()->first;
                       std::chrono::steady_clock::now() < next) {
                changed_.wait_until(lock, next);
            } else {
                auto due = tasks_.extract(tasks_.begin());
                lock.unlock();
                due.mapped()();
                due = {};  // what it holds goes outside the lock
                lock.lock();
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::multimap<Time, std::function<void()>> tasks_;
    bool started_ = false;
};

}  // namespace

void runAt(std::chrono::steady_clock::time_point time, std::function<void()> task) {
    static auto* const clock = new Clock;  // its thread outlives static objects
    clock->add(time, std::move(task));
}

}  // namespace morvane
