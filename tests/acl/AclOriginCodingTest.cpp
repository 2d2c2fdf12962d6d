// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <gtest/gtest.h>

#include <functional>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

/// What an entry tells of the list that it was read from, on its way to another process.
struct MVAclOriginCoding : testing::Test {
    std::shared_ptr<MVAclEntry> readEntry() const {
        auto entry = MVAclEntry::newEntryForDirectory(true);
        entry->setOrigin(MVAclOrigin::initWithValues({NSURL::fileURLWithPath("/srv/share"), true,
                                                      4000000000, 4802, MVAclStorage::nfs4,
                                                      "0123456789abcdef0123456789abcdef"}));
        return entry;
    }

    acltest::World world_;
};

/// An entry as it was before there were origins: of the same name, with the keys of then.
class EntryOfAnOlderPeer final : public NSObject {
  public:
    static const NSClass& classObject() {
        static const NSClass c{"MVAclEntry", &NSObject::classObject(), &initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeUUID(uuid, "uuid");
        coder.encodeInt32(tag, "tag");
        coder.encodeObjects(permissions, "permissions");
        coder.encodeBool(inherited, "inherited");
    }
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        auto entry = std::make_shared<EntryOfAnOlderPeer>();
        entry->uuid = coder.decodeUUID("uuid");
        entry->tag = coder.decodeInt32("tag");
        entry->permissions = coder.decodeObjects<MVTreeNode>(
            "permissions",
            {&NSArrayClass, &MVTreeNode::classObject(), &MVAclPermission::classObject()});
        entry->inherited = coder.decodeBool("inherited");
        return entry;
    }

    std::optional<NSUUID> uuid;
    std::int32_t tag = 0;
    MVAclEntry::Permissions permissions;
    bool inherited = false;
};

/// Writes an entry whose origin is whatever a test wants.
class EntryOfOrigin final : public NSObject {
  public:
    using Write = std::function<void(NSKeyedArchiver&)>;
    explicit EntryOfOrigin(Write write) : origin_(std::move(write)) {}
    const NSClass& objectClass() const override { return MVAclEntry::classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeObject(&origin_, "origin");
    }

  private:
    class Origin final : public NSObject {
      public:
        explicit Origin(Write write) : write_(std::move(write)) {}
        const NSClass& objectClass() const override { return MVAclOrigin::classObject(); }
        void encodeWithCoder(NSKeyedArchiver& coder) const override { write_(coder); }

      private:
        Write write_;
    };

    const Origin origin_;
};

/// What the decode of such an entry says; empty if it is taken.
std::string failureOfOrigin(EntryOfOrigin::Write write) {
    NSErrorRef error;
    const auto entry = NSKeyedUnarchiver::unarchivedObjectOfClasses(
        {&MVAclEntry::classObject()},
        NSKeyedArchiver::archivedDataWithRootObject(EntryOfOrigin(std::move(write))), &error);
    return entry ? "" : error->localizedDescription();
}

void writeOrigin(NSKeyedArchiver& coder, std::int64_t owner, std::int32_t storage,
                 const std::string& digest) {
    coder.encodeURL(NSURL::fileURLWithPath("/x"), "url");
    coder.encodeInt64(owner, "owner");
    coder.encodeInt64(1, "group");
    coder.encodeInt32(storage, "storage");
    coder.encodeString(std::string_view(digest), "digest");
}

TEST_F(MVAclOriginCoding, AnEntryComesBackWithItsOrigin) {
    const auto entry = readEntry();
    const auto back =
        std::static_pointer_cast<MVAclEntry>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&MVAclEntry::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(*entry),
            nullptr));
    ASSERT_TRUE(back);
    ASSERT_TRUE(back->origin());
    EXPECT_EQ(back->origin()->values(), entry->origin()->values());
}

TEST_F(MVAclOriginCoding, TheListsAsTheyAreStoredComeWithIt) {
    const auto entry = readEntry();
    const MVAclOrigin::StoredLists stored{{2, 0, 0, 0}, {2, 0, 0, 1}};
    entry->setOrigin(MVAclOrigin::initWithValues(entry->origin()->values(), stored));
    const auto back =
        std::static_pointer_cast<MVAclEntry>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&MVAclEntry::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(*entry),
            nullptr));
    ASSERT_TRUE(back && back->origin());
    EXPECT_EQ(back->origin()->storedLists(), stored);
    EXPECT_FALSE(back->origin()->isEqual(readEntry()->origin().get()));
    EXPECT_NE(failureOfOrigin([](NSKeyedArchiver& coder) {
                  writeOrigin(coder, 1, 1, "");
                  coder.encodeData(NSData(65537), "stored");
              }),
              "");
}

TEST_F(MVAclOriginCoding, AnOlderPeerReadsTheEntryAndLeavesItsOriginAlone) {
    const std::vector<std::shared_ptr<MVAclEntry>> entries{readEntry(), readEntry()};
    NSKeyedArchiver archiver;
    archiver.encodeObjects(entries, "entries");
    const auto archive = archiver.finishEncoding();
    NSKeyedUnarchiver coder(archive);
    const auto read = coder.decodeObjects<EntryOfAnOlderPeer>(
        "entries", {&NSArrayClass, &EntryOfAnOlderPeer::classObject()});
    ASSERT_EQ(read.size(), 2u);
    for (const auto& entry : read) {
        EXPECT_EQ(entry->uuid, entries[0]->uuid());
        EXPECT_EQ(entry->tag, 1);
        EXPECT_EQ(entry->permissions.size(), 4u);
    }
}

TEST_F(MVAclOriginCoding, AnEntryOfAnOlderPeerHasNoOrigin) {
    EntryOfAnOlderPeer older;
    older.tag = 2;
    NSErrorRef error;
    const auto entry =
        std::static_pointer_cast<MVAclEntry>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&MVAclEntry::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(older),
            &error));
    ASSERT_TRUE(entry) << error->localizedDescription();
    EXPECT_EQ(entry->tag(), 2);
    EXPECT_EQ(entry->origin(), nullptr);
}

TEST_F(MVAclOriginCoding, AnOriginThatCannotBeIsRefused) {
    EXPECT_EQ(failureOfOrigin([](auto& c) { writeOrigin(c, 1, 1, "d"); }), "");
    const auto refusal = [](const std::string& key, const std::string& what) {
        return "The archive cannot be read: for key \"" + key + "\", " + what + ".";
    };
    EXPECT_EQ(failureOfOrigin([](auto&) {}), refusal("url", "an origin has no URL"));
    for (const std::int64_t owner : {std::int64_t{-1}, std::int64_t{1} << 32})
        EXPECT_EQ(failureOfOrigin([=](auto& c) { writeOrigin(c, owner, 1, "d"); }),
                  refusal("owner", "a user or group has another number"));
    for (const std::int32_t storage : {0, 4})
        EXPECT_EQ(failureOfOrigin([=](auto& c) { writeOrigin(c, 1, storage, "d"); }),
                  refusal("storage", "there is no such storage"));
    EXPECT_EQ(failureOfOrigin([](auto& c) { writeOrigin(c, 1, 1, std::string(65, 'd')); }),
              refusal("digest", "a digest is too long"));
}

}  // namespace
}  // namespace morvane
