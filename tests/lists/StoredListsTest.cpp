// SPDX-License-Identifier: MIT
#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <gtest/gtest.h>

#include <random>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

constexpr std::uint32_t itemOwner = 3000001;
constexpr std::uint32_t itemGroup = 3000002;

/// Lists as a kernel can have them: with masks of all kinds, and with entries that name the owner.
class Lists {
  public:
    PosixAcl next(bool isDirectory) {
        PosixAcl acl{itemOwner, itemGroup, isDirectory, list(), {}};
        if (isDirectory && pick(2) == 0)
            acl.defaults = list();
        return acl;
    }

  private:
    unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
    PosixRights rights() { return static_cast<PosixRights>(pick(8)); }
    std::vector<PosixNamedRights> named() {
        std::vector<PosixNamedRights> entries;
        for (std::uint32_t id = itemOwner; id != itemOwner + 4; ++id) {
            if (pick(3) == 0)
                entries.push_back({id, rights()});
        }
        return entries;
    }
    PosixList list() {
        PosixList made{rights(), rights(), rights(), {}, named(), named()};
        if (!made.users.empty() || !made.groups.empty() || pick(3) == 0)
            made.mask = rights();
        return made;
    }

    std::mt19937 random_{20261122};
};

ItemList::Entries entriesTelling(const PosixAcl& acl, const PosixAcl& read) {
    auto entries = entriesOfPosixAcl(acl);
    const auto origin =
        MVAclOrigin::initWithValues({NSURL::fileURLWithPath("/item"), acl.isDirectory, acl.owner,
                                     acl.group, MVAclStorage::posix, digestOf(read)},
                                    storedListsOf(acl));
    for (const auto& entry : entries)
        entry->setOrigin(origin);
    return entries;
}

TEST(StoredLists, EntriesThatTellAListAreStoredAsThatListWhateverTheItemHas) {
    Lists lists;
    for (int i = 0; i != 4000; ++i) {
        const bool isDirectory = i % 2 == 0;
        const auto wanted = lists.next(isDirectory);
        const auto had = lists.next(isDirectory);
        const auto entries = entriesTelling(wanted, had);
        const auto made = reduceToPosixAcl(entries, PosixAclTarget::of(had, entries));
        ASSERT_TRUE(made.losses.empty()) << i << ": " << made.losses.front().text().localized();
        ASSERT_EQ(made.acl, wanted) << i;
        ASSERT_EQ(ItemList::asRead(entries)->storedPosixAcl(), wanted) << i;
    }
}

TEST(StoredLists, AListThatIsShownWholeNeedsNotBeTold) {
    Lists lists;
    int whole = 0;
    for (int i = 0; i != 4000; ++i) {
        const auto acl = lists.next(i % 2 == 0);
        const auto entries = entriesTelling(acl, acl);
        for (const auto& entry : entries)
            entry->setOrigin(MVAclOrigin::initWithValues(entry->origin()->values()));
        if (!isShownWhole(acl))
            continue;
        ++whole;
        ASSERT_EQ(ItemList::asRead(entries)->storedPosixAcl(), acl) << i;
    }
    EXPECT_GT(whole, 50);
}

TEST(StoredLists, AListComesBackFromItsAttribute) {
    Lists lists;
    for (int i = 0; i != 1000; ++i) {
        const auto list = lists.next(false).access;
        ASSERT_EQ(posixListOfAttribute(attributeOfPosixList(list)), list) << i;
    }
}

TEST(StoredLists, BytesThatNoKernelWouldStoreAreNoList) {
    const auto whole = attributeOfPosixList({PosixRead,
                                             PosixRead,
                                             PosixRead,
                                             PosixRead,
                                             {{1, PosixRead}, {2, PosixRead}},
                                             {{7, PosixRead}}});
    ASSERT_TRUE(posixListOfAttribute(whole));
    EXPECT_FALSE(posixListOfAttribute({}));
    EXPECT_FALSE(posixListOfAttribute({2, 0, 0, 0}));
    for (std::size_t size = 0; size != whole.size(); ++size)
        EXPECT_FALSE(posixListOfAttribute({whole.begin(), whole.begin() + static_cast<long>(size)}))
            << size;
    const auto withByte = [&](std::size_t place, std::uint8_t byte) {
        auto bytes = whole;
        bytes[place] = byte;
        return posixListOfAttribute(bytes);
    };
    EXPECT_FALSE(withByte(0, 3)) << "another version";
    EXPECT_FALSE(withByte(6, 8)) << "rights that are none";
    EXPECT_FALSE(withByte(4, 2)) << "no owner";
    EXPECT_FALSE(withByte(4 + 8 + 4, 2)) << "one user twice";
    EXPECT_FALSE(withByte(4 + 8 + 4, 3)) << "users out of order";
    EXPECT_FALSE(withByte(whole.size() - 8, 0x21)) << "a tag that is none";
}

TEST(StoredLists, EntriesThatTellNoWholeListAreWrittenToWhatTheItemHas) {
    const PosixAcl had{itemOwner,
                       itemGroup,
                       false,
                       {PosixRead, PosixRead, PosixRead, PosixRead, {{7, PosixEverything}}, {}},
                       {}};
    auto entries = entriesOfPosixAcl(had);
    entries.front()->setOrigin(MVAclOrigin::initWithValues(
        {NSURL::fileURLWithPath("/item"), false, itemOwner, itemGroup, MVAclStorage::posix, ""},
        {{2, 0, 0, 0, 1}, {}}));
    EXPECT_EQ(reduceToPosixAcl(entries, PosixAclTarget::of(had, entries)).acl, had);
}

}  // namespace
}  // namespace morvane
