// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/MainLoop.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace morvane {

/// A loop that a test turns by hand.
class FakeMainLoop final : public MainLoop {
  public:
    void runOnNextTurn(std::function<void()> task) override {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(std::move(task));
    }
    bool isLoopThread() const override { return true; }

    /// Runs the tasks that wait now, not those that they submit. Returns how many ran.
    std::size_t turn() {
        std::deque<std::function<void()>> tasks;
        {
            const std::lock_guard lock(mutex_);
            tasks.swap(waiting_);
        }
        for (auto& task : tasks)
            task();
        return tasks.size();
    }

    std::size_t waiting() const {
        const std::lock_guard lock(mutex_);
        return waiting_.size();
    }

  private:
    mutable std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
};

/// Puts a FakeMainLoop in place of the system's for as long as it lives.
class FakeMainLoopInstallation {
  public:
    FakeMainLoopInstallation() { MainLoop::setCurrent(loop_); }
    ~FakeMainLoopInstallation() { MainLoop::setCurrent(nullptr); }
    FakeMainLoopInstallation(const FakeMainLoopInstallation&) = delete;
    FakeMainLoopInstallation& operator=(const FakeMainLoopInstallation&) = delete;
    FakeMainLoop* operator->() const { return loop_.get(); }

  private:
    std::shared_ptr<FakeMainLoop> loop_ = std::make_shared<FakeMainLoop>();
};

}  // namespace morvane
