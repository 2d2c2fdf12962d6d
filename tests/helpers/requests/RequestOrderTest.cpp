// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "LongWork.h"
#include "WriteOrder.h"

namespace morvane {
namespace {

constexpr std::chrono::seconds watchdog{30};

/// Begins writes, and ends them when told.
struct Writes {
    std::shared_ptr<WriteOrder> order =
        std::make_shared<WriteOrder>([](const std::function<void()>& write) { write(); });
    std::vector<std::string> begun;
    std::map<std::string, WriteOrder::Token> tokens;

    void begin(const std::string& name, const WriteOrder::Paths& paths) {
        WriteOrder::begin(order, paths, [this, name](WriteOrder::Token token) {
            begun.push_back(name);
            tokens[name] = std::move(token);
        });
    }
    void end(const std::string& name) {
        const auto ended = tokens.extract(name);  // others may begin while it goes
    }
};

TEST(WriteOrder, WritesOfOneItemKeepTheirOrder) {
    Writes writes;
    writes.begin("first", {"/a/b"});
    writes.begin("second", {"/a/b"});
    writes.begin("third", {"/a/b"});
    EXPECT_EQ(writes.begun, std::vector<std::string>{"first"});
    writes.end("first");
    EXPECT_EQ(writes.begun, (std::vector<std::string>{"first", "second"}));
    writes.end("second");
    EXPECT_EQ(writes.begun, (std::vector<std::string>{"first", "second", "third"}));
}

TEST(WriteOrder, AWriteBelowAnotherWaitsForItAndTheOtherWayRound) {
    Writes writes;
    writes.begin("folder", {"/a"});
    writes.begin("below", {"/a/b/c"});
    writes.begin("above", {"/"});
    EXPECT_EQ(writes.begun, std::vector<std::string>{"folder"});
    writes.end("folder");
    EXPECT_EQ(writes.begun, (std::vector<std::string>{"folder", "below"}));
    writes.end("below");
    EXPECT_EQ(writes.begun, (std::vector<std::string>{"folder", "below", "above"}));
}

TEST(WriteOrder, WritesThatHaveNothingInCommonDoNotWait) {
    Writes writes;
    writes.begin("one", {"/a/b"});
    writes.begin("beside", {"/a/bc"});
    writes.begin("blocked", {"/a/b/c", "/x"});
    writes.begin("elsewhere", {"/y"});
    EXPECT_EQ(writes.begun, (std::vector<std::string>{"one", "beside", "elsewhere"}));
    writes.begin("behind the blocked one", {"/x"});
    EXPECT_EQ(writes.begun.size(), 3U);
    writes.end("one");
    writes.end("blocked");
    EXPECT_EQ(writes.begun.back(), "behind the blocked one");
}

/// Jobs that run until they are let go.
struct Jobs {
    explicit Jobs(LongWork::Limits limits) : work(std::make_shared<LongWork>(limits)) {}

    void add(const std::string& name, std::int64_t user, const void* client) {
        LongWork::run(work, {user, client}, [this, name, free = free] {
            {
                const std::lock_guard lock(mutex);
                begun.push_back(name);
                changed.notify_all();
            }
            free.wait();
            const std::lock_guard lock(mutex);
            ++ended;
            changed.notify_all();
        });
    }
    std::vector<std::string> onceBegun(std::size_t count) {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, watchdog, [&] { return begun.size() >= count; }));
        return begun;
    }
    void waitUntilEnded(std::size_t count) {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, watchdog, [&] { return ended >= count; }));
    }

    std::shared_ptr<LongWork> work;
    std::promise<void> letGo;
    std::shared_future<void> free = letGo.get_future().share();
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> begun;
    std::size_t ended = 0;
};

TEST(LongWork, JobsOfOneClientRunSideBySideWithinItsLimit) {
    Jobs jobs({.all = 8, .ofOneUser = 4, .ofOneClient = 2});
    const int client = 0;
    const int other = 0;
    for (const char* name : {"1", "2", "3"})
        jobs.add(name, 1000, &client);
    jobs.add("other's", 1000, &other);
    auto begun = jobs.onceBegun(3);
    std::sort(begun.begin(), begun.end());
    EXPECT_EQ(begun, (std::vector<std::string>{"1", "2", "other's"}));
    jobs.letGo.set_value();
    jobs.waitUntilEnded(4);
}

TEST(LongWork, AUserWithManyJobsHoldsUpNoOther) {
    Jobs jobs({.all = 3, .ofOneUser = 2, .ofOneClient = 2});
    const int clients[3] = {};
    for (const auto& client : clients)
        jobs.add("many", 1000, &client);
    jobs.add("one", 1001, &jobs);
    const auto begun = jobs.onceBegun(3);
    EXPECT_EQ(std::count(begun.begin(), begun.end(), "many"), 2);
    EXPECT_EQ(std::count(begun.begin(), begun.end(), "one"), 1);
    jobs.letGo.set_value();
    jobs.waitUntilEnded(4);
}

TEST(LongWork, AmongThoseThatWaitTheUserWithTheFewestIsNext) {
    Jobs jobs({.all = 1, .ofOneUser = 1, .ofOneClient = 1});
    const int clients[3] = {};
    jobs.add("first", 1000, &clients[0]);
    jobs.onceBegun(1);
    jobs.add("second", 1000, &clients[1]);
    jobs.add("third", 1001, &clients[2]);
    jobs.letGo.set_value();
    EXPECT_EQ(jobs.onceBegun(3), (std::vector<std::string>{"first", "second", "third"}));
    jobs.waitUntilEnded(3);
}

TEST(LongWork, OnceStoppedBeginsNothingMoreAndLetsGoOfWhatWaited) {
    Jobs jobs({.all = 1, .ofOneUser = 1, .ofOneClient = 1});
    jobs.add("running", 1000, &jobs);
    jobs.onceBegun(1);
    const auto held = std::make_shared<int>();
    LongWork::run(jobs.work, {1000, &jobs}, [held] {});
    jobs.work->stop();
    EXPECT_EQ(held.use_count(), 1);
    LongWork::run(jobs.work, {1001, &held}, [held] {});
    EXPECT_EQ(held.use_count(), 1);
    jobs.letGo.set_value();
    jobs.waitUntilEnded(1);
    EXPECT_EQ(jobs.onceBegun(1), std::vector<std::string>{"running"});
}

}  // namespace
}  // namespace morvane
