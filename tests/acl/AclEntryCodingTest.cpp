#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
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
    NSErrorRef error;
    EXPECT_FALSE(decodeForged(
        [](auto& c) { c.encodeString(std::string_view("not a uuid"), "uuid"); }, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSCoderReadCorruptError);
}

TEST_F(MVAclEntryCoding, APermissionStandingInTheArrayIsRefused) {
    NSErrorRef error;
    EXPECT_FALSE(decodeForged(
        [](auto& c) {
            c.encodeObjects(std::vector{MVAclPermission::initWithName("Delete", 2, 1)},
                            "permissions");
        },
        &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSCoderReadCorruptError);
}

TEST_F(MVAclEntryCoding, AnEntryStandingInTheArrayIsRefused) {
    NSErrorRef error;
    EXPECT_FALSE(decodeForged(
        [](auto& c) { c.encodeObjects(std::vector{MVAclEntry::init()}, "permissions"); }, &error));
    EXPECT_TRUE(error);
}

TEST_F(MVAclEntryCoding, ATagThatDoesNotFitIsRefused) {
    NSErrorRef error;
    EXPECT_FALSE(
        decodeForged([](auto& c) { c.encodeInt64(std::int64_t{1} << 32, "tag"); }, &error));
    EXPECT_TRUE(error);
}

TEST_F(MVAclEntryCoding, AChildThatIsNotATreeNodeFailsTheWholeDecode) {
    NSErrorRef error;
    const auto group = std::make_shared<Forged>(MVTreeNode::classObject(), [](auto& c) {
        c.encodeArchives(std::vector{MVAclPermission::initWithName("Delete", 2, 1)}, "children");
    });
    EXPECT_FALSE(
        decodeForged([&](auto& c) { c.encodeObjects(std::vector{group}, "permissions"); }, &error));
    EXPECT_TRUE(error);
}

TEST_F(MVAclEntryCoding, ANodeHoldingAnotherClassIsRefused) {
    NSErrorRef error;
    const auto group = std::make_shared<Forged>(MVTreeNode::classObject(), [](auto& c) {
        c.encodeObject(MVAclEntry::init().get(), "object");
    });
    EXPECT_FALSE(
        decodeForged([&](auto& c) { c.encodeObjects(std::vector{group}, "permissions"); }, &error));
    EXPECT_TRUE(error);
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
