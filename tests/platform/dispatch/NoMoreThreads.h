#pragma once

#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <system_error>

/// A process that can have no more threads.
namespace morvane {

/// Meanwhile no thread can be started: there is no memory for a stack like that.
class NoMoreThreads {
  public:
    NoMoreThreads() {
        pthread_getattr_default_np(&usual_);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        EXPECT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 47), 0);
        EXPECT_EQ(pthread_setattr_default_np(&huge), 0);
        pthread_attr_destroy(&huge);
    }
    ~NoMoreThreads() {
        EXPECT_EQ(pthread_setattr_default_np(&usual_), 0);
        pthread_attr_destroy(&usual_);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

  private:
    pthread_attr_t usual_{};
};

/// Gives each idle worker a task that waits for `end`, so that the next task needs a thread.
inline void occupyWorkers(const std::shared_future<void>& end, std::chrono::seconds watchdog) {
    const NoMoreThreads denied;
    try {
        for (;;)
            DispatchQueue::serialQueue("occupies a worker")->async([end, watchdog] {
                end.wait_for(watchdog);
            });
    } catch (const std::system_error&) {
    }
}

}  // namespace morvane
