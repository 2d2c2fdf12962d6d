// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace morvane {
namespace {

/// One turn of the loop that the host runs; does not wait.
bool turn() {
    return g_main_context_iteration(nullptr, FALSE) != FALSE;
}

TEST(GLibMainLoop, ATaskRunsWhenTheHostsLoopTurnsAndNotBefore) {
    bool ran = false;
    DispatchQueue::mainQueue().async([&] { ran = true; });
    EXPECT_FALSE(ran);
    while (!ran && turn()) {
    }
    EXPECT_TRUE(ran);
    EXPECT_FALSE(turn());
}

TEST(GLibMainLoop, ATaskThatATaskSubmitsRunsOnALaterTurn) {
    std::vector<std::string> order;
    DispatchQueue::mainQueue().async([&] {
        DispatchQueue::mainQueue().async([&] { order.emplace_back("inner"); });
        order.emplace_back("outer");
    });
    EXPECT_TRUE(turn());
    EXPECT_EQ(order, (std::vector<std::string>{"outer"}));
    EXPECT_TRUE(turn());
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "inner"}));
}

TEST(GLibMainLoop, TasksRunInTheOrderOfSubmission) {
    std::vector<int> order;
    for (int i = 0; i < 100; ++i)
        DispatchQueue::mainQueue().async([&order, i] { order.push_back(i); });
    while (turn()) {
    }
    ASSERT_EQ(order.size(), 100U);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(GLibMainLoop, ATaskFromAnotherThreadWakesTheLoopAndRunsOnItsThread) {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    std::thread::id ranOn;
    std::thread submitter([&] {
        DispatchQueue::mainQueue().async([&] {
            ranOn = std::this_thread::get_id();
            g_main_loop_quit(loop);
        });
    });
    g_main_loop_run(loop);  // until the task ends it
    submitter.join();
    g_main_loop_unref(loop);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(GLibMainLoop, TheMainQueueIsCurrentInItsTasksAndNotOnOtherThreads) {
    bool inside = false;
    bool elsewhere = true;
    DispatchQueue::mainQueue().async([&] {
        inside = DispatchQueue::mainQueue().isCurrent();
        std::thread([&] { elsewhere = DispatchQueue::mainQueue().isCurrent(); }).join();
    });
    EXPECT_TRUE(turn());
    EXPECT_TRUE(inside);
    EXPECT_FALSE(elsewhere);
}

TEST(GLibMainLoop, ATasksBelongingsGoOnceItHasRun) {
    const auto belonging = std::make_shared<int>(0);
    DispatchQueue::mainQueue().async([belonging] {});
    EXPECT_EQ(belonging.use_count(), 2);
    EXPECT_TRUE(turn());
    EXPECT_EQ(belonging.use_count(), 1);
}

}  // namespace
}  // namespace morvane
