// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVObservation.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

/// Observations that end with their owner.
namespace morvane {
namespace {

class Observation : public testing::Test {
  protected:
    std::unique_ptr<MVObservation> observe() {
        return MVObservation::of(entry, MVAclEntry::observableKeyPaths(),
                                 [this](const NSKeyPath& keyPath) { told.push_back(&keyPath); });
    }

    std::shared_ptr<MVAclEntry> entry = MVAclEntry::newEntryForDirectory(false);
    std::vector<const NSKeyPath*> told;
};

TEST_F(Observation, IsToldOfEachSetterUntilItsOwnerEndsIt) {
    auto observation = observe();
    entry->setTag(MVAclTagDeny);
    EXPECT_EQ(told, std::vector<const NSKeyPath*>{&MVAclEntry::tagKeyPath});
    observation.reset();
    entry->setTag(MVAclTagAllow);
    EXPECT_EQ(told.size(), 1u);
}

TEST_F(Observation, OutlivesWhatItObserves) {
    const auto observation = observe();
    const std::weak_ptr<MVAclEntry> weak = entry;
    entry.reset();
    EXPECT_TRUE(weak.expired());
}

TEST_F(Observation, MayEndItselfWhileItIsTold) {
    std::unique_ptr<MVObservation> observation;
    int calls = 0;
    const auto counted = std::make_shared<int>(1);
    observation =
        MVObservation::of(entry, {&MVAclEntry::tagKeyPath}, [&, counted](const NSKeyPath&) {
            observation.reset();
            calls += *counted;
        });
    entry->setTag(MVAclTagDeny);
    entry->setTag(MVAclTagAllow);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(counted.use_count(), 1);
}

TEST_F(Observation, OfABoxIsToldOfItsState) {
    int calls = 0;
    const auto& read = entry->permissions()[0];
    auto observation = MVObservation::ofBox(*read->childNodeAtIndex(0), [&] { ++calls; });
    MVTreeNode::setStateOf(*read->childNodeAtIndex(0), MVStateOff);
    EXPECT_EQ(calls, 1);
    observation.reset();
    MVTreeNode::setStateOf(*read->childNodeAtIndex(0), MVStateOn);
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(MVObservation::ofBox(*MVTreeNode::treeNodeWithRepresentedObject(nullptr), [] {}));
}

}  // namespace
}  // namespace morvane
