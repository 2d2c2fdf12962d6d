// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace morvane {
namespace {

using Observation = NSNotificationCenter::Observation;

class NSNotificationCenterTest : public testing::Test {
  protected:
    NSNotificationCenter center;
    std::vector<std::string> log;

    Observation logging(std::string_view name, std::string who) {
        return center.addObserver(
            name, [this, who = std::move(who)](const NSNotification&) { log.push_back(who); });
    }
    std::vector<std::string> told() { return std::exchange(log, {}); }
};

using Log = std::vector<std::string>;

TEST_F(NSNotificationCenterTest, APostIsGivenNameAndObjectOnThePostingThread) {
    NSObject sender;
    int posts = 0;
    const auto observation = center.addObserver("Changed", [&](const NSNotification& n) {
        ++posts;
        EXPECT_EQ(n.name, "Changed");
        EXPECT_EQ(n.object, posts == 1 ? &sender : nullptr);
    });
    center.postNotificationName("Changed", &sender);
    EXPECT_EQ(posts, 1);
    center.postNotificationName("Changed");
    EXPECT_EQ(posts, 2);
}

TEST_F(NSNotificationCenterTest, AnObserverHearsOfItsNameOnly) {
    const auto observation = logging("Changed", "a");
    center.postNotificationName("Change");
    center.postNotificationName("ChangedToo");
    center.postNotificationName("");
    EXPECT_EQ(told(), Log{});
}

TEST_F(NSNotificationCenterTest, ObserversAreCalledInTheOrderOfTheirRegistration) {
    const auto b = logging("Changed", "b");
    const auto a = logging("Changed", "a");
    const auto c = logging("Changed", "c");
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), (Log{"b", "a", "c"}));
}

TEST_F(NSNotificationCenterTest, ARegistrationLastsAsLongAsItsObservation) {
    {
        const auto observation = logging("Changed", "a");
        center.postNotificationName("Changed");
    }
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{"a"});
}

TEST_F(NSNotificationCenterTest, AMovedObservationKeepsTheRegistration) {
    std::optional<Observation> first = logging("Changed", "a");
    const Observation second = std::move(*first);
    first.reset();
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{"a"});
}

TEST_F(NSNotificationCenterTest, AnAssignmentEndsTheFormerRegistrationAtOnce) {
    auto a = logging("Changed", "a");
    auto b = logging("Changed", "b");
    a = std::move(b);
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{"b"});
    a = {};
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{});
}

TEST_F(NSNotificationCenterTest, AnObservationMayOutliveItsCenter) {
    auto other = std::make_unique<NSNotificationCenter>();
    const auto observation = other->addObserver("Changed", [](const NSNotification&) {});
    other.reset();
}

TEST_F(NSNotificationCenterTest, AnObserverMayEndItselfInsideItsHandler) {
    std::optional<Observation> self;
    const auto kept = std::make_shared<int>(7);
    int seen = 0;
    self = center.addObserver("Changed", [&self, &seen, kept](const NSNotification&) {
        self.reset();
        seen = *kept;  // the handler's own captures live until it returns
    });
    const auto b = logging("Changed", "b");
    center.postNotificationName("Changed");
    EXPECT_EQ(seen, 7);
    EXPECT_EQ(kept.use_count(), 1);
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), (Log{"b", "b"}));
}

TEST_F(NSNotificationCenterTest, OneThatAnEarlierHandlerEndedIsNotCalled) {
    std::optional<Observation> later;
    const auto first = center.addObserver("Changed", [&](const NSNotification&) { later.reset(); });
    later = logging("Changed", "later");
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{});
}

TEST_F(NSNotificationCenterTest, OneThatIsAddedInsideAHandlerHearsOfTheNextPost) {
    std::optional<Observation> added;
    const auto first = center.addObserver("Changed", [&](const NSNotification&) {
        if (!added)
            added = logging("Changed", "added");
    });
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{});
    center.postNotificationName("Changed");
    EXPECT_EQ(told(), Log{"added"});
}

TEST_F(NSNotificationCenterTest, AHandlerMayPost) {
    const auto outer = center.addObserver(
        "Outer", [&](const NSNotification&) { center.postNotificationName("Inner"); });
    const auto after = logging("Outer", "outer");
    const auto inner = logging("Inner", "inner");
    center.postNotificationName("Outer");
    EXPECT_EQ(told(), (Log{"inner", "outer"}));
}

TEST_F(NSNotificationCenterTest, ThreadsMayPostRegisterAndEndAtTheSameTime) {
    std::atomic<int> heard = 0;
    const auto all = center.addObserver("Changed", [&](const NSNotification&) { ++heard; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this] {
            for (int i = 0; i < 500; ++i) {
                const auto mine = center.addObserver("Mine", [](const NSNotification&) {});
                center.postNotificationName("Changed");
                center.postNotificationName("Mine");
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(heard, 2000);
}

TEST_F(NSNotificationCenterTest, TheDefaultCenterIsOne) {
    EXPECT_EQ(&NSNotificationCenter::defaultCenter(), &NSNotificationCenter::defaultCenter());
    EXPECT_NE(&NSNotificationCenter::defaultCenter(), &center);
}

}  // namespace
}  // namespace morvane
