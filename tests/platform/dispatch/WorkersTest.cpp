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

constexpr std::chrono::seconds watchdog{30};

class Task final : public LastingTask {
  public:
    explicit Task(std::function<void()> work) : work_(std::move(work)) {}
    void run() noexcept override { work_(); }

  private:
    const std::function<void()> work_;
};

TEST(LastingLane, RunsOneTaskAfterTheOtherInTheirOrder) {
    const auto lane = std::make_shared<LastingLane>();
    std::promise<void> goOn;
    std::promise<void> done;
    std::vector<int> order;
    lane->add(std::make_shared<Task>([&] {
        goOn.get_future().wait();
        order.push_back(0);
    }));
    for (int i = 1; i < 100; ++i)
        lane->add(std::make_shared<Task>([&, i] { order.push_back(i); }));
    lane->add(std::make_shared<Task>([&] { done.set_value(); }));
    EXPECT_TRUE(order.empty());
    goOn.set_value();
    ASSERT_EQ(done.get_future().wait_for(watchdog), std::future_status::ready);
    ASSERT_EQ(order.size(), 100U);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(LastingLane, RunsWhatIsAddedAfterItWasEmptyAndByATaskOfItsOwn) {
    const auto lane = std::make_shared<LastingLane>();
    for (int i = 0; i < 100; ++i) {
        std::promise<void> done;
        lane->add(std::make_shared<Task>(
            [&] { lane->add(std::make_shared<Task>([&] { done.set_value(); })); }));
        ASSERT_EQ(done.get_future().wait_for(watchdog), std::future_status::ready);
    }
}

}  // namespace
}  // namespace morvane
