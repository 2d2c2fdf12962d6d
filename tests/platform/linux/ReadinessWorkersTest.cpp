// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "Await.h"
#include "ThreadShortage.h"
#include "WaitFailure.h"

namespace morvane {
namespace {

/// Something to wait for: readable while its count is not 0.
std::shared_ptr<FileDescriptor> counter(unsigned count = 0) {
    return std::make_shared<FileDescriptor>(eventfd(count, EFD_CLOEXEC | EFD_NONBLOCK));
}

template <class T>
using Promise = std::shared_ptr<std::promise<T>>;
template <class T>
Promise<T> promise() {
    return std::make_shared<std::promise<T>>();
}

TEST(ReadinessWorkers, RunATaskOnAnotherThreadOnceThereIsSomethingToRead) {
    const auto descriptor = counter();
    const auto ran = promise<std::thread::id>();
    auto future = ran->get_future();
    runWhenReadable(descriptor->get(),
                    [descriptor, ran](bool) { ran->set_value(std::this_thread::get_id()); });
    EXPECT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    eventfd_write(descriptor->get(), 1);
    EXPECT_NE(await(std::move(future)), std::this_thread::get_id());
}

TEST(ReadinessWorkers, WhatIsThereAlreadyCounts) {
    const auto descriptor = counter(1);
    const auto ran = promise<bool>();
    auto future = ran->get_future();
    runWhenReadable(descriptor->get(), [descriptor, ran](bool alone) { ran->set_value(alone); });
    EXPECT_FALSE(await(std::move(future)));
}

TEST(ReadinessWorkers, TheEndOfAStreamCounts) {
    int pair[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const auto stream = std::make_shared<FileDescriptor>(pair[0]);
    FileDescriptor peer(pair[1]);
    const auto ran = promise<void>();
    auto future = ran->get_future();
    runWhenReadable(stream->get(), [stream, ran](bool) { ran->set_value(); });
    peer = FileDescriptor();
    await(std::move(future));
}

TEST(ReadinessWorkers, LetGoOfATaskOnceItHasRun) {
    const auto descriptor = counter(1);
    auto released = promise<void>();
    auto future = released->get_future();
    struct Signal {
        Promise<void> released;
        explicit Signal(Promise<void> promised) : released(std::move(promised)) {}
        ~Signal() { released->set_value(); }
    };
    runWhenReadable(descriptor->get(),
                    [signal = std::make_shared<Signal>(std::move(released))](bool) {});
    await(std::move(future));
}

TEST(ReadinessWorkers, TasksThatBlockDoNotKeepTheOthersWaiting) {
    constexpr int count = 20;
    const auto all = std::make_shared<std::latch>(count);
    const auto done = promise<void>();
    auto future = done->get_future();
    std::vector<std::shared_ptr<FileDescriptor>> descriptors;
    for (int i = 0; i < count; ++i)
        descriptors.push_back(counter());
    for (const auto& descriptor : descriptors) {
        runWhenReadable(descriptor->get(),
                        [descriptor, all, done, last = descriptors.front()](bool) {
                            all->arrive_and_wait();
                            if (descriptor == last)
                                done->set_value();
                        });
    }
    for (const auto& descriptor : descriptors)
        eventfd_write(descriptor->get(), 1);
    await(std::move(future));
}

TEST(ReadinessWorkers, AWatchedDescriptorRunsItsTaskOnceForEachTimeItIsWatched) {
    const auto descriptor = counter(1);  // stays readable
    const auto runs = std::make_shared<std::atomic<int>>(0);
    const auto third = promise<void>();
    auto future = third->get_future();
    watchReadable(descriptor->get(), [descriptor, runs, third](bool) {
        if (++*runs == 3) {
            third->set_value();
        } else {
            watchAgain(descriptor->get());
        }
    });
    await(std::move(future));
    // Another one's turn shows that nobody was woken for the first.
    const auto other = promise<void>();
    auto otherRan = other->get_future();
    const auto otherDescriptor = counter(1);
    runWhenReadable(otherDescriptor->get(), [otherDescriptor, other](bool) { other->set_value(); });
    await(std::move(otherRan));
    EXPECT_EQ(*runs, 3);
    stopWatching(descriptor->get());
}

TEST(ReadinessWorkers, AStoppedTaskIsLetGoOfAndDoesNotRun) {
    const auto descriptor = counter();
    auto kept = std::make_shared<int>(0);
    watchReadable(descriptor->get(), [kept](bool) { ADD_FAILURE() << "it ran"; });
    stopWatching(descriptor->get());
    EXPECT_EQ(kept.use_count(), 1);
    eventfd_write(descriptor->get(), 1);
    const auto other = promise<void>();
    auto otherRan = other->get_future();
    runWhenReadable(descriptor->get(), [descriptor, other](bool) { other->set_value(); });
    await(std::move(otherRan));
}

TEST(ReadinessWorkers, ADescriptorThatCannotBeWaitedForIsRefusedAndItsTaskNotRun) {
    bool ran = false;
    EXPECT_THROW(runWhenReadable(-1, [&](bool) { ran = true; }), std::system_error);
    EXPECT_FALSE(ran);
    EXPECT_THROW(watchReadable(-1, [](bool) {}), std::system_error);
}

TEST(ReadinessWorkers, WhereNothingCanBeWaitedForATaskRunsAlone) {
    const auto never = counter();
    const auto ran = promise<bool>();
    auto future = ran->get_future();
    noWaiting = true;
    runWhenReadable(never->get(), [never, ran](bool alone) { ran->set_value(alone); });
    // One who waits already does so until something comes.
    const auto kick = counter(1);
    runWhenReadable(kick->get(), [kick](bool) {});
    EXPECT_TRUE(await(std::move(future)));
    noWaiting = false;
    const auto again = counter(1);
    const auto ranAgain = promise<bool>();
    auto second = ranAgain->get_future();
    runWhenReadable(again->get(), [again, ranAgain](bool alone) { ranAgain->set_value(alone); });
    EXPECT_FALSE(await(std::move(second)));
}

/// While this is there, no thread can be had and none is idle.
class NoThreads {
  public:
    NoThreads() {
        noThreads = true;
        try {
            for (;;)
                runOnWorker([end = end_] { end.wait(); });
        } catch (const std::system_error&) {
            // Those that were idle are busy now.
        }
    }
    ~NoThreads() {
        noThreads = false;
        ending_.set_value();
    }

  private:
    std::promise<void> ending_;
    std::shared_future<void> end_ = ending_.get_future().share();
};

TEST(ReadinessWorkers, TheLastThreadRunsItsTaskAloneAndGoesOnWaiting) {
    const auto spare = counter();
    const auto spareRan = promise<void>();
    auto future = spareRan->get_future();
    runWhenReadable(spare->get(), [spare, spareRan](bool) { spareRan->set_value(); });
    const NoThreads none;
    std::promise<void> ending;
    const auto end = ending.get_future().share();
    // Each thread that is not the last stays in its task.
    for (bool wasAlone = false; !wasAlone;) {
        const auto descriptor = counter(1);
        const auto told = promise<bool>();
        auto alone = told->get_future();
        runWhenReadable(descriptor->get(), [descriptor, told, end](bool isAlone) {
            told->set_value(isAlone);
            if (!isAlone)
                end.wait();
        });
        wasAlone = await(std::move(alone));
    }
    eventfd_write(spare->get(), 1);
    await(std::move(future));
    ending.set_value();
}

}  // namespace
}  // namespace morvane
