// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using namespace acltest;

struct MVAclEntryCoding : testing::Test {
    World world;
};

std::shared_ptr<MVAclEntry> decoded(NSDataView data, NSErrorRef* error = nullptr) {
    return std::static_pointer_cast<MVAclEntry>(
        NSKeyedUnarchiver::unarchivedObjectOfClasses({&MVAclEntry::classObject()}, data, error));
}

/// Writes under the name of an entry whatever a test wants.
class Forged final : public NSObject {
  public:
    using Write = std::function<void(NSKeyedArchiver&)>;
    Forged(const NSClass& c, Write write) : class_(c), write_(std::move(write)) {}
    const NSClass& objectClass() const override { return class_; }
    void encodeWithCoder(NSKeyedArchiver& coder) const override { write_(coder); }

  private:
    const NSClass& class_;
    Write write_;
};

std::shared_ptr<NSObject> decodeForged(Forged::Write write, NSErrorRef* error) {
    return decoded(NSKeyedArchiver::archivedDataWithRootObject(
                       Forged(MVAclEntry::classObject(), std::move(write))),
                   error);
}

std::string refusal(std::string_view key, std::string_view what) {
    return "The archive cannot be read: for key \"" + std::string(key) + "\", " +
           std::string(what) + ".";
}

std::string notAllowed(std::string_view key, std::string_view name) {
    return refusal(key, "an object of class \"" + std::string(name) + "\" is not allowed there");
}

std::string standsTwice(std::string_view key, std::string_view name) {
    return refusal(key, "an object of class \"" + std::string(name) +
                            "\" stands there that stands in another place too");
}

std::string describe(const NSErrorRef& error) {
    if (!error)
        return "";
    return error->domain() == NSCocoaErrorDomain && error->code() == NSCoderReadCorruptError
               ? error->localizedDescription()
               : "an error of another kind";
}

/// What the decode of an entry says that `write` has written; empty if it is taken.
std::string failureOf(Forged::Write write) {
    NSErrorRef error;
    const auto object = decodeForged(std::move(write), &error);
    return object && error ? "an object and an error" : describe(error);
}

/// The same for an array of entries, as a message brings it.
std::string failureOfEntries(const std::vector<std::shared_ptr<MVAclEntry>>& entries) {
    NSKeyedArchiver archiver;
    archiver.encodeObjects(entries, "entries");
    const auto archive = archiver.finishEncoding();
    try {
        NSKeyedUnarchiver coder(archive);
        coder.decodeObjects<MVAclEntry>("entries", {&NSArrayClass, &MVAclEntry::classObject()});
    } catch (const NSArchiveFailure& failure) {
        return describe(failure.error());
    }
    return "";
}

TEST_F(MVAclEntryCoding, ADecodedEntryEqualsItsOriginal) {
    for (const bool directory : {false, true}) {
        const auto entry = MVAclEntry::newEntryForDirectory(directory);
        box(*entry, 0, 1).setState(0);
        entry->setTag(2);
        entry->setInherited(true);
        NSErrorRef error;
        const auto back = decoded(NSKeyedArchiver::archivedDataWithRootObject(*entry), &error);
        ASSERT_TRUE(back) << error->localizedDescription();
        EXPECT_TRUE(back->isEqual(entry.get()));
        EXPECT_TRUE(entry->isEqual(back.get()));
        EXPECT_EQ(back->uuid(), entry->uuid());
        EXPECT_EQ(back->tag(), 2);
        EXPECT_TRUE(back->inherited());
        EXPECT_EQ(back->permissionGroup(), 6);
        EXPECT_EQ(back->applicableTo(), entry->applicableTo());
        EXPECT_FALSE(box(*back, 0, 0).settable());
    }
}

TEST_F(MVAclEntryCoding, ADecodedEntryFollowsItsBoxes) {
    const auto back = decoded(
        NSKeyedArchiver::archivedDataWithRootObject(*MVAclEntry::newEntryForDirectory(true)));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->permissionGroup(), 2);
    box(*back, 2).setState(1);
    EXPECT_EQ(back->permissionGroup(), 1);
    EXPECT_TRUE(box(*back, 2, 1).settable());
}

TEST_F(MVAclEntryCoding, NoUuidComesBackAsEveryone) {
    const auto back = decoded(NSKeyedArchiver::archivedDataWithRootObject(*MVAclEntry::init()));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->uuid(), std::nullopt);
    EXPECT_EQ(back->identity()->uniqueIdentifier(), uuidOfPosixIdentity(CBEveryone{}));
    EXPECT_TRUE(back->permissions().empty());
}

TEST_F(MVAclEntryCoding, AnEntryOfUnknownIdentityEqualsNothingAfterDecodingEither) {
    const auto entry = MVAclEntry::initWithUuid(NSUUID({1, 2, 3}), 1, {}, false);
    const auto back = decoded(NSKeyedArchiver::archivedDataWithRootObject(*entry));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->uuid(), entry->uuid());
    EXPECT_FALSE(back->isEqual(entry.get()));
}

TEST_F(MVAclEntryCoding, AUuidOfAnotherClassFailsTheWholeDecode) {
    EXPECT_EQ(failureOf([](auto& c) { c.encodeString("not a uuid", "uuid"); }),
              refusal("uuid", "an object was expected"));
    EXPECT_EQ(failureOf([](auto& c) { c.encodeURL(NSURL::fileURLWithPath("/"), "uuid"); }),
              notAllowed("uuid", "NSURL"));
}

TEST_F(MVAclEntryCoding, APermissionStandingInTheArrayIsRefused) {
    EXPECT_EQ(failureOf([](auto& c) {
                  c.encodeObjects(std::vector{MVAclPermission::initWithName("Delete", 2, 1)},
                                  "permissions");
              }),
              notAllowed("permissions", "MVAclPermission"));
}

TEST_F(MVAclEntryCoding, AnEntryStandingInTheArrayIsRefused) {
    EXPECT_EQ(
        failureOf([](auto& c) { c.encodeObjects(std::vector{MVAclEntry::init()}, "permissions"); }),
        notAllowed("permissions", "MVAclEntry"));
}

TEST_F(MVAclEntryCoding, ATagThatDoesNotFitIsRefused) {
    EXPECT_EQ(failureOf([](auto& c) { c.encodeInt64(std::int64_t{1} << 32, "tag"); }),
              refusal("tag", "an integer does not fit its field"));
}

TEST_F(MVAclEntryCoding, AChildThatIsNotATreeNodeFailsTheWholeDecode) {
    const auto group = std::make_shared<Forged>(MVTreeNode::classObject(), [](auto& c) {
        c.encodeArchives(std::vector{MVAclPermission::initWithName("Delete", 2, 1)}, "children");
    });
    EXPECT_EQ(failureOf([&](auto& c) { c.encodeObjects(std::vector{group}, "permissions"); }),
              notAllowed("root", "MVAclPermission"));
}

TEST_F(MVAclEntryCoding, ANodeHoldingAnotherClassIsRefused) {
    const auto group = std::make_shared<Forged>(MVTreeNode::classObject(), [](auto& c) {
        c.encodeObject(MVAclEntry::init().get(), "object");
    });
    EXPECT_EQ(failureOf([&](auto& c) { c.encodeObjects(std::vector{group}, "permissions"); }),
              notAllowed("object", "MVAclEntry"));
}

// A small archive that unfolds into much work: every box would be observed in every place.
TEST_F(MVAclEntryCoding, AGroupOfManyBoxesInManyPlacesIsRefused) {
    constexpr std::size_t places = 6000;
    const auto group =
        node("Read", 2, 1, std::vector<std::int64_t>(64));  // one is refused as well as many
    EXPECT_EQ(
        failureOf([&](auto& c) { c.encodeObjects(std::vector(places, group), "permissions"); }),
        standsTwice("permissions", "MVTreeNode"));
}

TEST_F(MVAclEntryCoding, ABoxInManyNodesIsRefused) {
    const auto box = MVAclPermission::initWithName("Delete", 0x10, 1);
    std::vector<std::shared_ptr<MVTreeNode>> groups(16000);
    for (auto& group : groups)
        group = MVTreeNode::treeNodeWithRepresentedObject(box);
    EXPECT_EQ(failureOf([&](auto& c) { c.encodeObjects(groups, "permissions"); }),
              standsTwice("object", "MVAclPermission"));
}

TEST_F(MVAclEntryCoding, WhatStandsInTwoEntriesOfOneArrayIsRefused) {
    const auto group = node("Read", 2, 1, {1, 1});
    const auto box = MVAclPermission::initWithName("Delete", 0x10, 1);
    const auto entryOf = [](MVAclEntry::Permissions groups) {
        return MVAclEntry::initWithUuid(std::nullopt, 1, std::move(groups), false);
    };
    for (const std::size_t places : {2, 1000}) {
        std::vector<std::shared_ptr<MVAclEntry>> entries(places);
        for (auto& entry : entries)
            entry = entryOf({group});
        EXPECT_EQ(failureOfEntries(entries), standsTwice("permissions", "MVTreeNode"));
        for (auto& entry : entries)
            entry = entryOf({MVTreeNode::treeNodeWithRepresentedObject(box)});
        EXPECT_EQ(failureOfEntries(entries), standsTwice("object", "MVAclPermission"));
        EXPECT_EQ(failureOfEntries(std::vector(places, entryOf({}))),
                  standsTwice("entries", "MVAclEntry"));
    }
    EXPECT_EQ(failureOfEntries({entryOf({node("Read", 2, 1)}), entryOf({node("Read", 2, 1)})}), "");
}

TEST_F(MVAclEntryCoding, NodesAndBoxesCountAgainstTheBudget) {
    constexpr std::size_t count = 1000;
    NSKeyedArchiver archiver;
    std::vector<std::shared_ptr<MVTreeNode>> groups(count);
    for (auto& group : groups)
        group = node("", 2, 1);
    archiver.encodeObjects(groups, "groups");
    const auto archive = archiver.finishEncoding();
    const auto failureWithin = [&](std::uint64_t bytes) -> std::string {
        NSDecodingBudget budget;
        budget.bytes = bytes;
        try {
            NSKeyedUnarchiver coder(archive, budget);
            coder.decodeObjects<MVTreeNode>("groups", {&NSArrayClass, &MVTreeNode::classObject()});
        } catch (const NSArchiveFailure& failure) {
            return describe(failure.error());
        }
        return "";
    };
    const auto held = count * (sizeof(MVTreeNode) + sizeof(MVAclPermission));
    EXPECT_EQ(failureWithin(archive.size() + 2 * held), "");
    // A node or its box is the first for which there is too little.
    EXPECT_THAT(failureWithin(archive.size() + held),
                ::testing::AnyOf(refusal("object", "the archive unfolds into too many bytes"),
                                 refusal("groups", "the archive unfolds into too many bytes")));
}

TEST_F(MVAclEntryCoding, APermissionWithoutANameHasNoneAfterDecodingEither) {
    const auto coded = [](const MVAclPermission& permission) {
        return std::static_pointer_cast<MVAclPermission>(
            NSKeyedUnarchiver::unarchivedObjectOfClasses(
                {&MVAclPermission::classObject()},
                NSKeyedArchiver::archivedDataWithRootObject(permission), nullptr));
    };
    const auto nameless = MVAclPermission::init();
    const auto empty = MVAclPermission::initWithName("", 2, 0);
    EXPECT_FALSE(nameless->isEqual(empty.get()));
    EXPECT_FALSE(empty->isEqual(nameless.get()));
    const auto namelessBack = coded(*nameless);
    const auto emptyBack = coded(*empty);
    EXPECT_FALSE(namelessBack->hasName());
    EXPECT_EQ(namelessBack->name(), "");
    EXPECT_TRUE(emptyBack->hasName());
    EXPECT_TRUE(namelessBack->isEqual(nameless.get()));
    EXPECT_TRUE(emptyBack->isEqual(empty.get()));
    EXPECT_FALSE(namelessBack->isEqual(emptyBack.get()));
}

TEST_F(MVAclEntryCoding, ANamelessBoxOfAnEntryComesBackNameless) {
    const auto group = node("Read", 2, 1);
    group->mutableChildNodes().append(
        MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::init()));
    const auto back = decoded(NSKeyedArchiver::archivedDataWithRootObject(
        *MVAclEntry::initWithUuid(std::nullopt, 1, {group}, false)));
    ASSERT_TRUE(back);
    EXPECT_TRUE(box(*back, 0).hasName());
    EXPECT_FALSE(box(*back, 0, 0).hasName());
    EXPECT_EQ(box(*back, 0, 0).permission(), 2);
}

TEST_F(MVAclEntryCoding, ANodeWithNeitherKeyHasNoCheckBoxAndNoChildren) {
    NSErrorRef error;
    const auto group = std::make_shared<Forged>(MVTreeNode::classObject(), [](auto&) {});
    const auto back = std::static_pointer_cast<MVAclEntry>(
        decodeForged([&](auto& c) { c.encodeObjects(std::vector{group}, "permissions"); }, &error));
    ASSERT_TRUE(back) << error->localizedDescription();
    ASSERT_EQ(back->permissions().size(), 1u);
    EXPECT_EQ(back->permissions()[0]->representedObject(), nullptr);
    EXPECT_TRUE(back->permissions()[0]->childNodes().empty());
    EXPECT_EQ(back->tag(), 0);
    EXPECT_EQ(back->uuid(), std::nullopt);
}

TEST_F(MVAclEntryCoding, GroupsWithoutCheckBoxesDecodeAndReadAsOff) {
    const auto empty = MVTreeNode::treeNodeWithRepresentedObject(nullptr);
    NSErrorRef error;
    const auto back = std::static_pointer_cast<MVAclEntry>(decodeForged(
        [&](auto& c) {
            c.encodeObjects(std::vector{empty, MVTreeNode::treeNodeWithRepresentedObject(nullptr),
                                        MVTreeNode::treeNodeWithRepresentedObject(nullptr)},
                            "permissions");
        },
        &error));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->permissionGroup(), 5);
    back->setPermissionGroup(1);
    EXPECT_EQ(MVTreeNode::stateOf(*back->permissions()[0]), 0);
}

TEST_F(MVAclEntryCoding, AnEntryThatAPeerHasSentHasNobodyLookedUpUntilItsIdentityIsAskedFor) {
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(*MVAclEntry::initWithUuid(
        uuidOfPosixIdentity(CBPosixUser{1000}), 0, flatTree(1, 0, 0), false));
    const FakeUserDatabaseInstallation database;
    const auto entry = decoded(data);
    ASSERT_TRUE(entry);
    EXPECT_EQ(database->lookups, 0);
    EXPECT_EQ(entry->identity()->name(), "alice");
}

TEST_F(MVAclEntryCoding, AThousandEntriesOfOneUserReadTheUserDatabaseOnce) {
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(*MVAclEntry::initWithUuid(
        uuidOfPosixIdentity(CBPosixUser{1000}), 0, flatTree(1, 0, 0), false));
    const FakeUserDatabaseInstallation database;  // nobody was looked up here yet
    for (int i = 0; i < 1000; ++i) {
        const auto entry = decoded(data);
        ASSERT_TRUE(entry);
        ASSERT_TRUE(entry->identity());
        EXPECT_EQ(entry->identity()->name(), "alice");
    }
    EXPECT_EQ(database->lookups, 1);
}

}  // namespace
}  // namespace morvane
