// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Await.h"
#include "platform/fake/FakeMainLoop.h"

namespace morvane {
namespace {

TEST(DispatchQueue, RunsItsTasksInTheOrderOfSubmission) {
    const auto queue = DispatchQueue::serialQueue("test");
    std::vector<int> order;
    std::promise<void> last;
    for (int i = 0; i < 1000; ++i)
        queue->async([&order, i] { order.push_back(i); });
    queue->async([&] { last.set_value(); });
    await(last.get_future());
    ASSERT_EQ(order.size(), 1000U);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(DispatchQueue, NeverRunsTwoTasksAtOnceWhoeverSubmitsThem) {
    const auto queue = DispatchQueue::serialQueue("test");
    int count = 0;  // no lock: the queue is one
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
                queue->async([&] { ++count; });
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::promise<int> counted;
    queue->async([&] { counted.set_value(count); });
    EXPECT_EQ(await(counted.get_future()), 2000);
}

TEST(DispatchQueue, ATaskSubmittedByATaskRunsAfterIt) {
    const auto queue = DispatchQueue::serialQueue("test");
    std::vector<std::string> order;
    std::promise<void> last;
    queue->async([&] {
        queue->async([&] {
            order.push_back("inner");
            last.set_value();
        });
        order.push_back("outer");
    });
    await(last.get_future());
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "inner"}));
}

TEST(DispatchQueue, HasTheLabelItWasGiven) {
    EXPECT_EQ(DispatchQueue::serialQueue("a label")->label(), "a label");
    EXPECT_EQ(DispatchQueue::serialQueue("")->label(), "");
    EXPECT_EQ(DispatchQueue::serialQueue(nullptr)->label(), std::nullopt);
}

TEST(DispatchQueue, IsCurrentInItsOwnTasksOnly) {
    const auto queue = DispatchQueue::serialQueue("one");
    const auto other = DispatchQueue::serialQueue("other");
    EXPECT_FALSE(queue->isCurrent());
    std::promise<std::pair<bool, bool>> inside;
    queue->async([&] { inside.set_value({queue->isCurrent(), other->isCurrent()}); });
    EXPECT_EQ(await(inside.get_future()), std::pair(true, false));
}

TEST(DispatchQueue, LivesUntilItsTasksHaveRun) {
    auto queue = DispatchQueue::serialQueue("short-lived");
    const std::weak_ptr<DispatchQueue> weak = queue;
    std::promise<void> letGo;
    std::promise<bool> second;
    queue->async([gone = letGo.get_future().share()] { gone.wait_for(watchdog); });
    queue->async([&] { second.set_value(!weak.expired()); });
    queue.reset();
    letGo.set_value();
    EXPECT_TRUE(await(second.get_future()));
}

TEST(DispatchQueue, ATasksBelongingsGoBeforeTheNextTaskRuns) {
    const auto queue = DispatchQueue::serialQueue("test");
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> weak = owned;
    std::promise<bool> gone;
    queue->async([owned = std::move(owned)] {});
    queue->async([&] { gone.set_value(weak.expired()); });
    EXPECT_TRUE(await(gone.get_future()));
}

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
void occupyWorkers(const std::shared_future<void>& end) {
    const NoMoreThreads denied;
    try {
        for (;;)
            DispatchQueue::serialQueue("occupies a worker")->async([end] {
                end.wait_for(watchdog);
            });
    } catch (const std::system_error&) {
    }
}

/// Occupies the workers until `isRefused` says so: one may become idle late, of what an earlier
/// test has had done.
void untilRefused(const std::shared_future<void>& end, const std::function<bool()>& isRefused) {
    const auto limit = std::chrono::steady_clock::now() + watchdog;
    do {
        occupyWorkers(end);
        const NoMoreThreads denied;
        if (isRefused())
            return;
    } while (std::chrono::steady_clock::now() < limit);
    ADD_FAILURE() << "nothing is refused where no thread can be had";
}

TEST(DispatchQueue, ThatCouldHaveNoThreadSaysSoAndRunsTheNextTask) {
    std::promise<void> end;
    std::shared_ptr<DispatchQueue> queue;
    std::shared_ptr<std::vector<std::string>> order;
    untilRefused(end.get_future().share(), [&] {
        queue = DispatchQueue::serialQueue("test");
        order = std::make_shared<std::vector<std::string>>();
        try {
            queue->async([order] { order->push_back("refused"); });
        } catch (const std::system_error&) {
            return true;
        }
        return false;
    });
    std::promise<void> last;
    queue->async([&] {
        order->push_back("next");
        last.set_value();
    });
    await(last.get_future());
    EXPECT_EQ(*order, std::vector<std::string>{"next"});
    end.set_value();
}

TEST(DispatchQueue, WhatARefusedTaskHoldsMayUseTheQueueWhenItGoes) {
    struct User {
        std::shared_ptr<DispatchQueue> queue;
        std::shared_ptr<std::atomic<bool>> isRefused;
        ~User() {
            try {
                queue->async([] {});
            } catch (const std::system_error&) {
                *isRefused = true;
            }
        }
    };
    std::promise<void> end;
    untilRefused(end.get_future().share(), [] {
        const auto queue = DispatchQueue::serialQueue("test");
        const auto isRefused = std::make_shared<std::atomic<bool>>(false);
        try {
            queue->async([user = std::shared_ptr<User>(new User{queue, isRefused})] {});
        } catch (const std::system_error&) {
            return isRefused->load();
        }
        return false;
    });
    end.set_value();
}

TEST(DispatchQueue, TheMainQueueRunsItsTasksOnALaterTurnOfTheLoop) {
    const FakeMainLoopInstallation loop;
    std::vector<int> order;
    DispatchQueue::mainQueue().async([&] {
        order.push_back(1);
        DispatchQueue::mainQueue().async([&] { order.push_back(2); });
    });
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(loop->turn(), 1U);
    EXPECT_EQ(order, std::vector{1});
    EXPECT_EQ(loop->turn(), 1U);
    EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(DispatchQueue, TheMainQueueIsCurrentOnTheLoopsThreadAndHasNoLabel) {
    const FakeMainLoopInstallation loop;
    EXPECT_TRUE(DispatchQueue::mainQueue().isCurrent());
    EXPECT_EQ(DispatchQueue::mainQueue().label(), std::nullopt);
}

TEST(Workers, RunBlockingTasksAtTheSameTime) {
    constexpr int count = 8;
    std::latch together(count);
    std::promise<void> all;
    std::atomic<int> done = 0;
    for (int i = 0; i < count; ++i) {
        runOnWorker([&] {
            together.arrive_and_wait();
            if (++done == count)
                all.set_value();
        });
    }
    await(all.get_future());
}

TEST(Workers, LetGoOfATaskOnceItHasRun) {
    struct Signal {
        std::promise<void> gone;
        ~Signal() { gone.set_value(); }
    };
    auto signal = std::make_shared<Signal>();
    auto gone = signal->gone.get_future();
    runOnWorker([signal = std::move(signal)] {});
    await(std::move(gone));
}

}  // namespace
}  // namespace morvane
