// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace morvane {
namespace {

constexpr std::chrono::seconds laneWatchdog{30};

class LaneTask final : public LastingTask {
  public:
    explicit LaneTask(std::function<void()> work) : work_(std::move(work)) {}
    void run() noexcept override { work_(); }

  private:
    const std::function<void()> work_;
};

TEST(LastingLane, RunsOneTaskAfterTheOtherInTheirOrder) {
    const auto lane = std::make_shared<LastingLane>();
    std::promise<void> goOn;
    std::promise<void> done;
    std::vector<int> order;
    lane->add(std::make_shared<LaneTask>([&] {
        goOn.get_future().wait();
        order.push_back(0);
    }));
    for (int i = 1; i < 100; ++i)
        lane->add(std::make_shared<LaneTask>([&, i] { order.push_back(i); }));
    lane->add(std::make_shared<LaneTask>([&] { done.set_value(); }));
    EXPECT_TRUE(order.empty());
    goOn.set_value();
    ASSERT_EQ(done.get_future().wait_for(laneWatchdog), std::future_status::ready);
    ASSERT_EQ(order.size(), 100U);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(LastingLane, RunsWhatIsAddedAfterItWasEmptyAndByATaskOfItsOwn) {
    const auto lane = std::make_shared<LastingLane>();
    for (int i = 0; i < 100; ++i) {
        std::promise<void> done;
        lane->add(std::make_shared<LaneTask>(
            [&] { lane->add(std::make_shared<LaneTask>([&] { done.set_value(); })); }));
        ASSERT_EQ(done.get_future().wait_for(laneWatchdog), std::future_status::ready);
    }
}

}  // namespace
}  // namespace morvane
