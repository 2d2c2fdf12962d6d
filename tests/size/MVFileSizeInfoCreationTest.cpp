// SPDX-License-Identifier: MIT
#include "size/SizeFixture.h"

// What holds only before the formatter of this process is made: one test, one program.
namespace morvane {
namespace {

TEST(MVFileSizeInfoCreation, PostsOnceAndServesTheObserverOfThatPost) {
    const auto store = std::make_shared<FakeDefaultsStore>();
    store->values["useBase2MathForSizes"] = "true";
    NSUserDefaults::standardUserDefaults().setStore(store);
    int posts = 0;
    NSObject* poster = nullptr;
    std::string text;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification& notification) {
            ++posts;
            poster = notification.object;
            text = MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(1024, true);
        });
    const auto& info = MVFileSizeInfo::init();
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(poster, info.get());
    EXPECT_EQ(text, "1 KB");
    EXPECT_EQ(MVFileSizeInfo::sharedFileSizeInfo(), info);
    EXPECT_EQ(posts, 1);
}

}  // namespace
}  // namespace morvane
