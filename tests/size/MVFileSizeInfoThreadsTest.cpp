// SPDX-License-Identifier: MIT
#include <atomic>
#include <latch>
#include <thread>
#include <vector>

#include "size/SizeFixture.h"

// What holds only before the formatter of this process is made: one test, one program.
namespace morvane {
namespace {

TEST(MVFileSizeInfoThreads, ManyThatAskAtOnceGetTheOneThatIsMadeOnce) {
    constexpr std::size_t count = 8;
    NSUserDefaults::standardUserDefaults().setStore(std::make_shared<FakeDefaultsStore>());
    std::atomic<int> posts = 0;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification&) { ++posts; });
    std::vector<std::shared_ptr<MVFileSizeInfo>> infos(count);
    std::vector<std::string> texts(count);
    {
        std::latch start(count);
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                infos[i] = MVFileSizeInfo::sharedFileSizeInfo();
                texts[i] = infos[i]->stringWithFileSize(1500, true);
            });
        }
    }
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(infos, std::vector(count, MVFileSizeInfo::sharedFileSizeInfo()));
    EXPECT_EQ(texts, std::vector<std::string>(count, "1.5 KB"));
}

}  // namespace
}  // namespace morvane
