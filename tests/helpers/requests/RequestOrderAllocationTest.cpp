// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "LongWork.h"
#include "MemoryShortage.h"
#include "WriteOrder.h"

/// What becomes of writes and of long work when memory runs out: each allocation of a scenario
/// fails in turn.
namespace morvane {
namespace {

constexpr std::chrono::seconds watchdog{30};
/// Too long to be held inside a string.
constexpr const char* item = "/a/folder/of/some/depth/with/an/item";

/// What has come of some jobs. Nothing here needs memory.
struct Outcome {
    std::mutex mutex;
    std::condition_variable changed;
    int begun = 0;
    int gone = 0;

    void waitUntilGone(int count) {
        std::unique_lock lock(mutex);
        if (!changed.wait_for(lock, watchdog, [&] { return gone >= count; }))
            std::abort();
    }
};

/// Counts a job as gone when the last copy of it is.
std::shared_ptr<Outcome> countIn(Outcome& outcome) {
    return {&outcome, [](Outcome* job) {
                const std::lock_guard lock(job->mutex);
                ++job->gone;
                job->changed.notify_all();
            }};
}

/// Runs `scenario` with each of its allocations failing in turn, until none is left to fail.
template <class Scenario>
void withEachAllocationFailing(const Scenario& scenario) {
    for (const bool forGood : {false, true}) {
        for (long count = 0;; ++count) {
            SCOPED_TRACE(testing::Message() << "allocation " << count << ", for good: " << forGood);
            std::optional<MemoryShortage> shortage;
            bool isReached = false;
            scenario([&] { shortage.emplace(count, forGood); },
                     [&] {
                         isReached = shortage->isReached();
                         shortage.reset();
                     });
            if (testing::Test::HasFailure() || !isReached)
                break;
        }
    }
}

TEST(WriteOrderWithoutMemory, WhatCannotBeginIsDroppedAndHoldsUpNobody) {
    withEachAllocationFailing([](const auto& begin, const auto& end) {
        const auto order = std::make_shared<WriteOrder>([](WriteOrder::Task write) {
            const auto job = std::make_unique<WriteOrder::Task>(std::move(write));
            (*job)();
        });
        Outcome outcome;
        std::array<std::shared_ptr<Outcome>, 3> jobs{countIn(outcome), countIn(outcome),
                                                     countIn(outcome)};
        WriteOrder::Paths first{item};
        std::array<WriteOrder::Paths, 3> paths{WriteOrder::Paths{item}, {item}, {"/a"}};
        WriteOrder::Token running;
        begin();
        try {
            WriteOrder::begin(order, std::move(first),
                              [&running](WriteOrder::Token token) { running = std::move(token); });
        } catch (const std::bad_alloc&) {
        }
        for (std::size_t i = 0; i != jobs.size(); ++i) {
            try {
                WriteOrder::begin(
                    order, std::move(paths[i]),
                    [job = std::move(jobs[i])](const WriteOrder::Token&) { ++job->begun; });
            } catch (const std::bad_alloc&) {
            }
        }
        running.reset();
        end();
        EXPECT_EQ(outcome.gone, 3);
        bool hasRun = false;
        WriteOrder::begin(order, {item}, [&](const WriteOrder::Token&) { hasRun = true; });
        EXPECT_TRUE(hasRun);
    });
}

TEST(LongWorkWithoutMemory, WhatCannotRunIsDroppedAndHoldsUpNobody) {
    withEachAllocationFailing([](const auto& begin, const auto& end) {
        const auto work = std::make_shared<LongWork>(
            LongWork::Limits{.all = 1, .ofOneUser = 1, .ofOneClient = 1});
        Outcome outcome;
        std::array<std::shared_ptr<Outcome>, 3> jobs{countIn(outcome), countIn(outcome),
                                                     countIn(outcome)};
        begin();
        for (auto& job : jobs) {
            try {
                LongWork::run(work, {1000, &outcome}, [job = std::move(job)] {
                    // As much as a job may want itself.
                    job->begun += static_cast<int>(*std::make_unique<int>(1));
                });
            } catch (const std::bad_alloc&) {
            }
        }
        outcome.waitUntilGone(3);
        end();
        LongWork::run(work, {1000, &outcome}, [job = countIn(outcome)] {});
        outcome.waitUntilGone(4);
    });
}

}  // namespace
}  // namespace morvane
