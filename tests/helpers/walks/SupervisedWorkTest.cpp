// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>

#include "SupervisedWork.h"
#include "ThreadShortage.h"

namespace morvane {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

constexpr std::uint32_t alice = 3000003;
constexpr std::uint32_t bob = 3000004;

/// Work that waits until it is let go, as in a file system that does not answer.
class Gate {
  public:
    void open() {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }
    void pass() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return isOpen_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isOpen_ = false;
};

WorkSupervision impatient(std::uint32_t user) {
    return {.user = user,
            .interval = milliseconds(0),
            .goesOn = [] { return false; },
            .cancel = [] {},
            .grace = milliseconds(0)};
}

TEST(SupervisedWork, WorkThatEndsIsWaitedFor) {
    int done = 0;
    const auto end = supervise([&] { ++done; }, {.user = alice,
                                                 .interval = hours(1),
                                                 .goesOn = [] { return ADD_FAILURE(), true; },
                                                 .cancel = [] { ADD_FAILURE(); }});
    EXPECT_EQ(end, WorkEnd::done);
    EXPECT_EQ(done, 1);
}

TEST(SupervisedWork, ItIsAskedForOnTheWaitingThreadUntilANo) {
    const auto waiting = std::this_thread::get_id();
    const auto gate = std::make_shared<Gate>();
    int asked = 0;
    int cancelled = 0;
    const auto end =
        supervise([gate] { gate->pass(); }, {.user = alice,
                                             .interval = milliseconds(0),
                                             .goesOn =
                                                 [&] {
                                                     EXPECT_EQ(std::this_thread::get_id(), waiting);
                                                     return ++asked != 3;
                                                 },
                                             .cancel =
                                                 [&] {
                                                     ++cancelled;
                                                     gate->open();
                                                 },
                                             .grace = hours(1)});
    EXPECT_EQ(end, WorkEnd::done) << "it ends, and is waited for";
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(cancelled, 1);
}

TEST(SupervisedWork, WhatItThrowsIsThrownToWhoWaits) {
    EXPECT_THROW(supervise([] { throw std::out_of_range("too far"); },
                           {.user = alice, .goesOn = [] { return true; }, .cancel = [] {}}),
                 std::out_of_range);
}

TEST(SupervisedWork, WhereItsClientCannotBeAskedItGoesOn) {
    const auto gate = std::make_shared<Gate>();
    int asked = 0;
    const auto end = supervise([gate] { gate->pass(); }, {.user = alice,
                                                          .interval = std::chrono::milliseconds(1),
                                                          .goesOn = [&]() -> bool {
                                                              if (++asked == 3)
                                                                  gate->open();
                                                              throw std::bad_alloc();
                                                          },
                                                          .cancel = [] {}});
    EXPECT_EQ(end, WorkEnd::done);
    EXPECT_GE(asked, 3);
}

TEST(SupervisedWork, WithoutAThreadItIsNotBegun) {
    noThreads = true;
    const auto end = supervise([] { ADD_FAILURE(); }, impatient(alice));
    noThreads = false;
    EXPECT_EQ(end, WorkEnd::noThread);
}

TEST(SupervisedWork, WorkThatDoesNotEndCostsItsOwnUserPlaces) {
    const auto gate = std::make_shared<Gate>();
    for (std::size_t i = 0; i != maxWorkLeft; ++i)
        EXPECT_EQ(supervise([gate] { gate->pass(); }, impatient(alice)), WorkEnd::left);
    EXPECT_EQ(supervise([] { ADD_FAILURE(); }, impatient(alice)), WorkEnd::tooMuchLeft);
    std::atomic<int> done = 0;
    const WorkSupervision patient{.user = bob, .goesOn = [] { return true; }, .cancel = [] {}};
    EXPECT_EQ(supervise([&] { ++done; }, patient), WorkEnd::done);
    EXPECT_EQ(done, 1) << "another user's is done";
    gate->open();
    // Its places are free again when it has ended.
    auto again = patient;
    again.user = alice;
    while (supervise([&] { ++done; }, again) == WorkEnd::tooMuchLeft)
        std::this_thread::yield();
    EXPECT_EQ(done, 2);
}

}  // namespace
}  // namespace morvane
