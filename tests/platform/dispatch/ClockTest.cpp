// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace morvane {
namespace {

using Time = std::chrono::steady_clock;
constexpr std::chrono::seconds clockWatchdog{30};

TEST(Clock, RunsATaskAtItsTime) {
    std::promise<Time::time_point> ran;
    const auto due = Time::now() + std::chrono::milliseconds(5);
    const ClockTask task(due, [&] { ran.set_value(Time::now()); });
    auto at = ran.get_future();
    ASSERT_EQ(at.wait_for(clockWatchdog), std::future_status::ready);
    EXPECT_GE(at.get(), due);
}

TEST(Clock, ATaskThatIsDroppedDoesNotRun) {
    std::promise<void> goOn;
    std::promise<void> next;
    std::atomic<bool> hasRun = false;
    const auto now = Time::now();
    runAt(now, [&] { goOn.get_future().wait(); });
    {
        const ClockTask dropped(now, [&] { hasRun = true; });
        runAt(now, [&] { next.set_value(); });
    }
    goOn.set_value();
    ASSERT_EQ(next.get_future().wait_for(clockWatchdog), std::future_status::ready);
    EXPECT_FALSE(hasRun);
}

TEST(Clock, NothingOfATaskThatIsDroppedStays) {
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> weak = held;
    std::optional<ClockTask> task(std::in_place, Time::now() + std::chrono::hours(1),
                                  [held = std::move(held)] {});
    EXPECT_FALSE(weak.expired());
    task.reset();
    EXPECT_TRUE(weak.expired());
}

TEST(Clock, ATaskMayDropItself) {
    std::optional<ClockTask> task;
    std::promise<void> ran;
    std::promise<void> isSet;
    task.emplace(Time::now(), [&] {
        isSet.get_future().wait();
        task.reset();
        ran.set_value();
    });
    isSet.set_value();
    EXPECT_EQ(ran.get_future().wait_for(clockWatchdog), std::future_status::ready);
}

/// How often the calling thread has gone to sleep.
long sleeps() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

// Of a service whose clients connect and leave, each of whom is looked at for a time.
TEST(Clock, DoesNotWakeForEachOfManyTasks) {
    constexpr int tasks = 500;
    constexpr std::chrono::microseconds apart{40};
    const auto start = Time::now() + std::chrono::milliseconds(50);
    long before = 0;
    std::promise<long> after;
    runAt(start, [&] { before = sleeps(); });
    for (int i = 1; i < tasks; ++i)
        runAt(start + i * apart, [] {});
    runAt(start + tasks * apart, [&] { after.set_value(sleeps()); });
    auto last = after.get_future();
    ASSERT_EQ(last.wait_for(clockWatchdog), std::future_status::ready);
    EXPECT_LE(last.get() - before, 10);  // in 20 ms, of which the thread sees every fifth
}

TEST(Clock, DoesNotWakeForEachOfManyTasksThatAreDropped) {
    const auto sleepsOfTheClock = [] {
        std::promise<long> told;
        runAt(Time::now(), [&] { told.set_value(sleeps()); });
        return told.get_future().get();
    };
    const auto before = sleepsOfTheClock();
    constexpr int tasks = 1000;
    for (int i = 0; i != tasks; ++i) {
        const ClockTask dropped(Time::now() + std::chrono::hours(1), [] {});
        std::this_thread::yield();
    }
    EXPECT_LE(sleepsOfTheClock() - before, 10);
}

TEST(Clock, RunsTasksInTheOrderOfTheirTimes) {
    const auto start = Time::now() + std::chrono::milliseconds(20);
    std::vector<int> order;
    std::promise<void> last;
    runAt(start + std::chrono::milliseconds(40), [&] {
        order.push_back(3);
        last.set_value();
    });
    runAt(start, [&] { order.push_back(1); });
    runAt(start + std::chrono::milliseconds(20), [&] { order.push_back(2); });
    ASSERT_EQ(last.get_future().wait_for(clockWatchdog), std::future_status::ready);
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

}  // namespace
}  // namespace morvane
