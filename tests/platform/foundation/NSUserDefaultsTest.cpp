// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/FakeDefaultsStore.h"

namespace morvane {
namespace {

constexpr NSKeyPath flag{"flag"};
constexpr NSKeyPath other{"other"};

class NSUserDefaultsTest : public testing::Test, public NSKeyValueObserver {
  protected:
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject& object) override {
        EXPECT_EQ(&object, &defaults);
        told.push_back(&keyPath);
        if (then)
            then();
    }

    using Told = std::vector<const NSKeyPath*>;
    std::shared_ptr<FakeDefaultsStore> store = std::make_shared<FakeDefaultsStore>();
    NSUserDefaults defaults{store};
    Told told;
    std::function<void()> then;
};

TEST_F(NSUserDefaultsTest, OnlyTrueYesAndOneAreTrue) {
    for (const auto text : {"true", "yes", "1"}) {
        const auto stored = std::make_shared<FakeDefaultsStore>();
        stored->values = {{"flag", text}};
        EXPECT_TRUE(NSUserDefaults(stored).boolForKey("flag")) << text;
    }
    for (const auto text : {"", "false", "no", "0", "2", "True", "YES", " true"}) {
        const auto stored = std::make_shared<FakeDefaultsStore>();
        stored->values = {{"flag", text}};
        EXPECT_FALSE(NSUserDefaults(stored).boolForKey("flag")) << text;
    }
    EXPECT_FALSE(defaults.boolForKey("flag"));
}

TEST_F(NSUserDefaultsTest, ASetIsStoredAndToldOnceAlsoWithoutAChange) {
    defaults.addObserver(this, flag);
    then = [this] { EXPECT_TRUE(defaults.boolForKey("flag")); };
    EXPECT_EQ(defaults.setBool(true, "flag"), nullptr);
    EXPECT_EQ(store->values, (DefaultsStore::Values{{"flag", "true"}}));
    EXPECT_EQ(told, Told{&flag});
    defaults.setBool(true, "flag");
    EXPECT_EQ(told, (Told{&flag, &flag}));
}

TEST_F(NSUserDefaultsTest, ASetOfAnotherKeyIsNotTold) {
    defaults.addObserver(this, flag);
    defaults.setBool(true, "other");
    EXPECT_EQ(told, Told{});
}

TEST_F(NSUserDefaultsTest, AnEditByAnotherIsToldOnceIfTheKeyReadsDifferently) {
    defaults.addObserver(this, flag);
    defaults.addObserver(this, other);
    store->values = {{"flag", "yes"}, {"other", "no"}};
    store->tellOfChange();
    EXPECT_EQ(told, Told{&flag});
    EXPECT_TRUE(defaults.boolForKey("flag"));
    store->values["flag"] = "1";
    store->tellOfChange();
    EXPECT_EQ(told, Told{&flag});
}

TEST_F(NSUserDefaultsTest, AValueThatCouldNotBeStoredCountsUntilAnotherChangesTheStore) {
    defaults.addObserver(this, flag);
    store->saveError = NSError::errorWithDomain(NSPOSIXErrorDomain, 28);
    EXPECT_EQ(defaults.setBool(true, "flag"), store->saveError);
    EXPECT_TRUE(defaults.boolForKey("flag"));
    EXPECT_EQ(told, Told{&flag});
    store->tellOfChange();
    EXPECT_FALSE(defaults.boolForKey("flag"));
    EXPECT_EQ(told, (Told{&flag, &flag}));
}

TEST_F(NSUserDefaultsTest, ARemovedObserverIsNotTold) {
    defaults.addObserver(this, flag);
    defaults.addObserver(this, flag);
    defaults.removeObserver(this, flag);
    defaults.setBool(true, "flag");
    EXPECT_EQ(told, Told{&flag});
    defaults.removeObserver(this, flag);
    defaults.setBool(false, "flag");
    EXPECT_EQ(told, Told{&flag});
    EXPECT_THROW(defaults.removeObserver(this, flag), NSException);
    EXPECT_THROW(defaults.addObserver(nullptr, flag), NSException);
}

TEST_F(NSUserDefaultsTest, AnObserverMayRemoveItselfAndSet) {
    defaults.addObserver(this, flag);
    then = [this] {
        then = nullptr;
        defaults.removeObserver(this, flag);
        defaults.setBool(false, "flag");
    };
    defaults.setBool(true, "flag");
    EXPECT_EQ(told, Told{&flag});
    EXPECT_FALSE(defaults.boolForKey("flag"));
}

TEST_F(NSUserDefaultsTest, AnotherStoreIsReadAndWatchedButNotToldOf) {
    defaults.addObserver(this, flag);
    const auto next = std::make_shared<FakeDefaultsStore>();
    next->values = {{"flag", "true"}};
    defaults.setStore(next);
    EXPECT_EQ(told, Told{});
    EXPECT_TRUE(defaults.boolForKey("flag"));
    store->tellOfChange();  // the former store's word counts no more
    EXPECT_EQ(told, Told{});
    next->values.clear();
    next->tellOfChange();
    EXPECT_EQ(told, Told{&flag});
}

}  // namespace
}  // namespace morvane
