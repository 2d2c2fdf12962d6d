// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;
using testing::ElementsAre;

const NSUUID alice = uuidOfPosixIdentity(CBPosixUser{1000});
const NSUUID staff = uuidOfPosixIdentity(CBPosixGroup{2000});
const NSUUID nobodyKnown = NSUUID({1, 2, 3});

struct MVAclEntryRecord : testing::Test {
    World world;
};

std::shared_ptr<MVAclEntry> boxed(const std::optional<NSUUID>& uuid, std::int32_t tag,
                                  bool inherited, const std::vector<std::int64_t>& read = {1, 0},
                                  bool fourth = false) {
    MVAclEntry::Permissions tree{node("Read", 2, 0, read), node("Write", 2, 0, {1}),
                                 node("Administration", 2, 0, {0})};
    if (fourth)
        tree.push_back(node("Applies To", 0x2000, 0, {1, 0}));
    return MVAclEntry::initWithUuid(uuid, tag, tree, inherited);
}

TEST_F(MVAclEntryRecord, InitIsForEveryoneWithoutATree) {
    const auto entry = MVAclEntry::init();
    EXPECT_EQ(entry->tag(), 0);
    EXPECT_TRUE(entry->permissions().empty());
    EXPECT_EQ(entry->uuid(), std::nullopt);
    ASSERT_TRUE(entry->identity());
    EXPECT_EQ(entry->identity()->uniqueIdentifier(), uuidOfPosixIdentity(CBEveryone{}));
    EXPECT_FALSE(entry->isAcl());
    EXPECT_TRUE(entry->isShallow());
    EXPECT_EQ(entry->permissionGroup(), 6);
    EXPECT_EQ(entry->canonicalScore(), 4294967295);
    EXPECT_FALSE(entry->inherited());
    EXPECT_FALSE(entry->updatingPermissions());
    EXPECT_EQ(entry->applicableTo(), "This item");
    EXPECT_FALSE(entry->applicableToInitialized());
    EXPECT_TRUE(MVAclEntry::supportsSecureCoding());
}

TEST_F(MVAclEntryRecord, WhoItIsForIsLookedUpOnceAndOnlyForThoseWhoAsk) {
    const auto entry = boxed(alice, 1, false);
    const auto other = boxed(staff, 1, false);
    EXPECT_EQ(world.users->lookups, 0);
    EXPECT_EQ(entry->identity()->name(), "alice");
    EXPECT_EQ(entry->identity()->name(), "alice");
    EXPECT_EQ(world.users->lookups, 1);
    // The new identifier alone makes it nobody else's.
    other->setUuid(alice);
    EXPECT_EQ(other->identity()->name(), "staff");
}

TEST_F(MVAclEntryRecord, SettingTheIdentitySetsTheUuidAndTellsOfItFirst) {
    const auto entry = MVAclEntry::init();
    Recorder recorder;
    entry->addObserver(&recorder, MVAclEntry::uuidKeyPath);
    entry->addObserver(&recorder, MVAclEntry::identityKeyPath);
    entry->setIdentity(entry->identity());
    EXPECT_EQ(entry->uuid(), uuidOfPosixIdentity(CBEveryone{}));
    EXPECT_THAT(recorder.told, ElementsAre("uuid", "identity"));
    entry->setIdentity(nullptr);
    EXPECT_EQ(entry->uuid(), std::nullopt);
}

TEST_F(MVAclEntryRecord, TheScorePutsDenyBeforeAllowAndExplicitBeforeInherited) {
    const auto score = [](std::int32_t tag, bool inherited) {
        return MVAclEntry::initWithUuid({}, tag, {}, inherited)->canonicalScore();
    };
    EXPECT_EQ(score(1, false), 0);
    EXPECT_EQ(score(2, false), 1);
    EXPECT_EQ(score(1, true), -5);
    EXPECT_EQ(score(2, true), -4);
    EXPECT_EQ(score(0, false), 4294967295);
    EXPECT_EQ(score(0, true), 4294967290);
    EXPECT_EQ(score(std::numeric_limits<std::int32_t>::min(), false), 2147483647);
}

TEST_F(MVAclEntryRecord, TheInheritanceLevelIsAlwaysOne) {
    EXPECT_EQ(MVAclEntry::initWithUuid({}, 1, {}, false)->inheritanceLevel(), 1);
    EXPECT_EQ(MVAclEntry::initWithUuid({}, 1, {}, true)->inheritanceLevel(), 1);
}

TEST_F(MVAclEntryRecord, CopiesThatDifferOnlyInNamesGroupCodeAndTextAreEqual) {
    const auto a = boxed(alice, 1, false);
    const auto b = boxed(alice, 1, false);
    box(*b, 0, 0).setName("other");
    b->setUpdatingPermissions(true);
    b->setPermissionGroup(3);
    b->setApplicableTo("elsewhere");
    b->setApplicableToInitialized(true);
    EXPECT_TRUE(a->isEqual(b.get()));
    EXPECT_NE(std::hash<std::shared_ptr<MVAclEntry>>()(a),
              std::hash<std::shared_ptr<MVAclEntry>>()(b));
}

TEST_F(MVAclEntryRecord, TagInheritanceKindIdentityAndBoxesTellEntriesApart) {
    const auto a = boxed(alice, 1, false);
    EXPECT_FALSE(a->isEqual(nullptr));
    EXPECT_FALSE(a->isEqual(MVAclPermission::init().get()));
    EXPECT_FALSE(a->isEqual(boxed(alice, 2, false).get()));
    EXPECT_FALSE(a->isEqual(boxed(alice, 1, true).get()));
    EXPECT_FALSE(a->isEqual(boxed(staff, 1, false).get()));
    EXPECT_FALSE(a->isEqual(boxed(alice, 1, false, {1, 1}).get()));
    EXPECT_FALSE(a->isEqual(MVAclEntry::initWithUuid(alice, 1, flatTree(0, 0, 0), false).get()));
    const auto other = boxed(alice, 1, false);
    box(*other, 0, 0).setPermission(99);
    EXPECT_FALSE(a->isEqual(other.get()));
}

TEST_F(MVAclEntryRecord, EqualityIsOneSided) {
    const auto three = boxed(alice, 1, false);
    const auto four = boxed(alice, 1, false, {1, 0}, true);
    EXPECT_TRUE(three->isEqual(four.get()));
    EXPECT_FALSE(four->isEqual(three.get()));
    const auto moreBoxes = boxed(alice, 1, false, {1, 0, 1});
    EXPECT_TRUE(three->isEqual(moreBoxes.get()));
    EXPECT_FALSE(moreBoxes->isEqual(three.get()));
}

TEST_F(MVAclEntryRecord, TheGroupsOfBoxedEntriesAreNotCompared) {
    const auto a = boxed(alice, 1, false);
    const auto b = boxed(alice, 1, false);
    b->setUpdatingPermissions(true);
    box(*b, 0).setState(1);
    box(*b, 0).setPermission(7);
    EXPECT_TRUE(a->isEqual(b.get()));
}

TEST_F(MVAclEntryRecord, FlatEntriesCompareTheirGroups) {
    const auto flat = [](std::int64_t w) {
        return MVAclEntry::initWithUuid(alice, 1, flatTree(1, w, 0), false);
    };
    EXPECT_TRUE(flat(0)->isEqual(flat(0).get()));
    EXPECT_FALSE(flat(0)->isEqual(flat(1).get()));
}

TEST_F(MVAclEntryRecord, AnEntryOfUnknownIdentityEqualsNothingNotEvenItself) {
    const auto entry = boxed(nobodyKnown, 1, false);
    EXPECT_EQ(entry->identity(), nullptr);
    EXPECT_EQ(entry->uuid(), nobodyKnown);
    EXPECT_FALSE(entry->isEqual(entry.get()));
}

TEST_F(MVAclEntryRecord, AFolderEntryWithOnlyAppliesToSetIsShallow) {
    const auto entry = MVAclEntry::newEntryForDirectory(true);
    EXPECT_FALSE(entry->isShallow());
    entry->setPermissionGroup(MVAclGroupNone);
    EXPECT_TRUE(entry->isShallow());
    EXPECT_EQ(box(*entry, 3).state(), -1);
    for (std::size_t group = 0; group < 3; ++group) {
        box(*entry, group, 0).setState(1);
        EXPECT_FALSE(entry->isShallow());
        box(*entry, group, 0).setState(0);
        EXPECT_TRUE(entry->isShallow());
    }
}

struct ScriptedIdentities final : MVIdentities {
    static List one(const char* name) {
        return {std::make_shared<CBIdentity>(NSUUID({9}), name, false)};
    }
    List fullNamedIdentities() override { return one("all"); }
    List fullNamedUsers() override { return one("users"); }
    List fullNamedGroups() override { return one("groups"); }
};

TEST_F(MVAclEntryRecord, TheOfferedIdentitiesFollowTheKindOfEntry) {
    MVIdentities::setSharedIdentities(std::make_shared<ScriptedIdentities>());
    EXPECT_EQ(boxed(alice, 1, false)->identities().at(0)->name(), "all");
    const auto flat = [](const NSUUID& uuid) {
        return MVAclEntry::initWithUuid(uuid, 1, flatTree(0, 0, 0), false)
            ->identities()
            .at(0)
            ->name();
    };
    EXPECT_EQ(flat(alice), "users");
    EXPECT_EQ(flat(staff), "groups");
    EXPECT_EQ(flat(nobodyKnown), "users");
    MVIdentities::setSharedIdentities(nullptr);
}

TEST_F(MVAclEntryRecord, TheOfferedCodesLeaveNoneToFlatEntries) {
    const auto acl = MVAclEntry::newEntryForDirectory(false);
    const auto flat = MVAclEntry::init();
    EXPECT_THAT(acl->permissionGroups(), ElementsAre(1, 2, 3, 4, 6));
    EXPECT_THAT(flat->permissionGroups(), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(acl->tags(), ElementsAre(1, 2));
    EXPECT_EQ(&acl->tags(), &flat->tags());
}

TEST_F(MVAclEntryRecord, NewsOfIdentitiesIsPassedOnUntilTheEntryGoes) {
    auto entry = MVAclEntry::init();
    Recorder recorder;
    entry->addObserver(&recorder, MVAclEntry::identitiesKeyPath);
    NSNotificationCenter::defaultCenter().postNotificationName("MVIdentitiesUpdated");
    EXPECT_THAT(recorder.told, ElementsAre("identities"));
    entry.reset();
    NSNotificationCenter::defaultCenter().postNotificationName("MVIdentitiesUpdated");
    EXPECT_EQ(recorder.told.size(), 1u);
}

TEST_F(MVAclEntryRecord, ObserversAreRegisteredForTheFourKeyPathsInOrder) {
    std::vector<std::string> paths;
    for (const auto* keyPath : MVAclEntry::observableKeyPaths())
        paths.emplace_back(keyPath->name);
    EXPECT_THAT(paths, ElementsAre("identity", "tag", "permissionGroup", "inherited"));
    const auto entry = MVAclEntry::init();
    Recorder recorder;
    entry->addObserver(&recorder);
    entry->setIdentity(nullptr);
    entry->setTag(0);
    entry->setApplicableTo("x");
    entry->setInherited(false);
    EXPECT_THAT(recorder.told, ElementsAre("identity", "tag", "inherited"));
    entry->removeObserver(&recorder);
    entry->setTag(1);
    EXPECT_EQ(recorder.told.size(), 3u);
    EXPECT_EQ(exceptionName([&] { entry->removeObserver(&recorder); }),
              "NSInvalidArgumentException");
}

TEST_F(MVAclEntryRecord, NodesThatOutliveTheEntryNoLongerCallIt) {
    auto entry = MVAclEntry::newEntryForDirectory(true);
    const auto tree = entry->permissions();
    entry.reset();
    MVTreeNode::setStateOf(*tree[0], 0);
    EXPECT_EQ(MVTreeNode::stateOf(*tree[0]->childNodeAtIndex(0)), 1);
}

TEST_F(MVAclEntryRecord, AReplacedTreeIsNoLongerObserved) {
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    const auto tree = entry->permissions();
    entry->setPermissions(flatTree(0, 0, 0));
    EXPECT_EQ(entry->permissionGroup(), 2);
    MVTreeNode::setStateOf(*tree[0], 0);
    EXPECT_EQ(MVTreeNode::stateOf(*tree[0]->childNodeAtIndex(0)), 1);
    box(*entry, 0).setState(1);
    EXPECT_EQ(entry->permissionGroup(), 3);
}

TEST_F(MVAclEntryRecord, ABoxTakenOutByTheHostIsStillLetGoOf) {
    auto entry = MVAclEntry::newEntryForDirectory(false);
    const auto taken = entry->permissions()[0]->childNodeAtIndex(0);
    entry->permissions()[0]->mutableChildNodes().removeObjectAtIndex(0);
    entry.reset();
    MVTreeNode::setStateOf(*taken, 0);
    EXPECT_EQ(MVTreeNode::stateOf(*taken), 0);
}

TEST_F(MVAclEntryRecord, ANullGroupIsRefused) {
    const auto entry = MVAclEntry::newEntryForDirectory(false);
    EXPECT_EQ(exceptionName([&] { entry->setPermissions({nullptr}); }),
              "NSInvalidArgumentException");
    EXPECT_EQ(entry->permissions().size(), 3u);
}

}  // namespace
}  // namespace morvane
