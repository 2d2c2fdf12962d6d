// SPDX-License-Identifier: MIT
#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

constexpr std::uint32_t itemOwner = 3000001;
constexpr std::uint32_t itemGroup = 3000002;
constexpr std::uint32_t somebody = 3000004;
constexpr PosixRights readAndWrite = PosixRead | PosixWrite;

class AnItemList : public testing::Test {
  protected:
    ItemList::Entries read(PosixAcl acl) {
        auto entries = entriesOfPosixAcl(acl);
        const auto origin = MVAclOrigin::initWithValues(
            {NSURL::fileURLWithPath("/item"), acl.isDirectory, acl.owner, acl.group,
             acl.hasLists ? MVAclStorage::posix : MVAclStorage::mode, digestOf(acl)});
        for (const auto& entry : entries)
            entry->setOrigin(origin);
        return entries;
    }
    ItemList::Entries readFile(bool hasLists = true) {
        return read({.owner = itemOwner,
                     .group = itemGroup,
                     .isDirectory = false,
                     .access = {readAndWrite, PosixRead, PosixNothing, {}, {}, {}},
                     .defaults = {},
                     .hasLists = hasLists});
    }
    static std::shared_ptr<MVAclEntry> newEntry(const CBPosixIdentity& who, std::int64_t choice) {
        auto entry =
            MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), 1,
                                     MVAclEntry::newEntryForDirectory(false)->permissions(), false);
        entry->setPermissionGroup(choice);
        return entry;
    }
    static const NSTreeNode& box(const MVAclEntry& entry, const std::string& name) {
        for (const auto& group : entry.permissions()) {
            if (MVTreeNode::permissionOf(*group)->name() == name)
                return *group;
            for (const auto& node : group->childNodes()) {
                if (MVTreeNode::permissionOf(*node)->name() == name)
                    return *node;
            }
        }
        throw std::out_of_range(name);
    }

    acltest::World world_;
};

TEST_F(AnItemList, IsNotKnownFromEntriesThatWereNotRead) {
    EXPECT_FALSE(ItemList::asRead({}));
    EXPECT_FALSE(ItemList::asRead({newEntry(CBPosixUser{somebody}, MVAclGroupRead)}));
    ASSERT_TRUE(ItemList::asRead(readFile()));
    EXPECT_EQ(ItemList::asRead(readFile())->item().owner, itemOwner);
}

TEST_F(AnItemList, TellsWhichChoicesAnEntryCanBeGiven) {
    const auto list = *ItemList::asRead(readFile());
    for (const CBPosixIdentity& who :
         {CBPosixIdentity{CBPosixUser{somebody}}, CBPosixIdentity{CBPosixGroup{itemGroup}},
          CBPosixIdentity{CBEveryone{}}}) {
        const auto entry = newEntry(who, MVAclGroupRead);
        for (const auto code : {MVAclGroupRead, MVAclGroupWrite, MVAclGroupReadWrite})
            EXPECT_TRUE(list.holdsChoice(*entry, code)) << code;
        EXPECT_FALSE(list.holdsChoice(*entry, MVAclGroupAll));
        EXPECT_FALSE(list.holdsChoice(*entry, MVAclGroupCustom));
        EXPECT_EQ(entry->permissionGroup(), MVAclGroupRead) << "it is not changed by the question";
    }
    EXPECT_TRUE(list.holdsChoice(*newEntry(CBPosixUser{itemOwner}, MVAclGroupRead), MVAclGroupAll));
}

TEST_F(AnItemList, TellsWhichBoxesAnEntryCanHave) {
    const auto list = *ItemList::asRead(readFile());
    const auto others = newEntry(CBPosixUser{somebody}, MVAclGroupRead);
    const auto owners = newEntry(CBPosixUser{itemOwner}, MVAclGroupRead);
    for (const char* name : {"Read", "Read Data", "Execute File", "Read Attributes", "Write",
                             "Write Data", "Write Extended Attributes"})
        EXPECT_TRUE(list.holdsBox(*others, box(*others, name))) << name;
    for (const char* name :
         {"Delete", "Write Attributes", "Change Permissions", "Change Owner", "Administration"}) {
        EXPECT_FALSE(list.holdsBox(*others, box(*others, name))) << name;
        EXPECT_EQ(list.holdsBox(*owners, box(*owners, name)), std::string(name) != "Delete")
            << name;
    }
    others->setTag(2);
    EXPECT_TRUE(list.holdsBox(*others, box(*others, "Write Data")));
    EXPECT_FALSE(list.holdsBox(*others, box(*others, "Read Attributes")));
}

TEST_F(AnItemList, AsksForTheExecutionThatSomebodyHasSwitchedOn) {
    auto entries = readFile();
    const auto list = *ItemList::asRead(entries);
    const auto entry = newEntry(CBPosixUser{somebody}, MVAclGroupRead);
    entry->setOrigin(entries.front()->origin());
    const auto executes = [&](const std::shared_ptr<MVAclEntry>& given) {
        auto edited = entries;
        edited.push_back(given);
        EXPECT_TRUE(list.losses(edited).empty());
        const auto nearest = list.nearest(edited);
        return MVTreeNode::stateOf(box(*nearest[1], "Execute File")) == MVStateOn;
    };
    EXPECT_FALSE(executes(entry)) << "\"Read\" as a whole, where nobody executes";
    const auto asking = list.askingToExecute(entry);
    EXPECT_TRUE(executes(asking));
    EXPECT_EQ(asking->uuid(), entry->uuid());
    ASSERT_TRUE(asking->origin());
    EXPECT_EQ(asking->origin()->values(), entry->origin()->values());
    EXPECT_EQ(entry->permissionGroup(), MVAclGroupRead) << "it stays what it was";

    MVTreeNode::setStateOf(box(*entry, "Read Data"), MVStateOff);
    EXPECT_EQ(list.askingToExecute(entry), entry) << "its boxes count one by one already";
    EXPECT_EQ(list.askingToExecute(entries[0]), entries[0]) << "so do those of a flat entry";
    entry->setPermissionGroup(MVAclGroupRead);
    entry->setTag(MVAclTagDeny);
    EXPECT_EQ(list.askingToExecute(entry), entry);
}

TEST_F(AnItemList, TellsLossesAndTheNearestList) {
    auto entries = readFile();
    const auto list = *ItemList::asRead(entries);
    entries.push_back(newEntry(CBPosixUser{somebody}, MVAclGroupAll));
    const auto losses = list.losses(entries);
    ASSERT_EQ(losses.size(), 1U);
    EXPECT_EQ(losses[0].entry, 3U);
    EXPECT_EQ(losses[0].reason, EntryLossReason::box);
    EXPECT_EQ(losses[0].box, "Administration");
    const auto nearest = list.nearest(entries);
    ASSERT_EQ(nearest.size(), 4U);
    EXPECT_TRUE(list.losses(nearest).empty());
    EXPECT_EQ(nearest[1]->permissionGroup(), MVAclGroupCustom);
    EXPECT_EQ(nearest[1]->origin(), entries[0]->origin());
}

TEST_F(AnItemList, HoldsItsNearestListThoughADenialForAGroupIsShownInIt) {
    constexpr std::uint32_t staff = 3000005;
    auto entries = read({itemOwner,
                         itemGroup,
                         true,
                         {PosixEverything, PosixNothing, PosixRead | PosixExecute, {}, {}, {}},
                         {}});
    const auto list = *ItemList::asRead(entries);
    auto asked =
        MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixGroup{staff}), 1,
                                 MVAclEntry::newEntryForDirectory(true)->permissions(), false);
    for (const auto& node : asked->permissions()[3]->childNodes())
        MVTreeNode::setStateOf(*node, MVStateOn);
    MVTreeNode::setStateOf(*asked->permissions()[3]->childNodes()[0], MVStateOff);  // "This item"
    asked->setPermissionGroup(MVAclGroupAll);
    entries.push_back(asked);
    ASSERT_FALSE(list.losses(entries).empty());
    const auto nearest = list.nearest(entries);
    EXPECT_THAT(textsOfLosses(list.losses(nearest)), testing::IsEmpty());
}

TEST_F(AnItemList, KeepsWhoIsNamedBesideTheOwnersClass) {
    auto entries = read({itemOwner,
                         itemGroup,
                         false,
                         {PosixRead,
                          PosixNothing,
                          PosixNothing,
                          PosixEverything,
                          {{itemOwner, PosixEverything}},
                          {}},
                         {}});
    const auto list = *ItemList::asRead(entries);
    entries.push_back(newEntry(CBEveryone{}, MVAclGroupReadWrite));
    const auto nearest = list.nearest(entries);
    ASSERT_EQ(nearest.size(), 4U);
    EXPECT_FALSE(nearest[0]->isAcl());
    EXPECT_EQ(MVTreeNode::stateOf(*nearest[0]->permissions()[1]), MVStateOff)
        << "the owner is not given what the entry says";
    EXPECT_EQ(nearest[1]->uuid(), entries[1]->uuid());
    EXPECT_EQ(nearest[1]->tag(), 1);
    EXPECT_EQ(MVTreeNode::stateOf(box(*nearest[1], "Write Data")), MVStateOn);
}

TEST_F(AnItemList, ARefusalCarriesItsLossesThroughAnArchive) {
    auto entries = readFile();
    const auto list = *ItemList::asRead(entries);
    entries.push_back(newEntry(CBPosixUser{somebody}, MVAclGroupAll));
    const auto error = list.whyNot(entries, false);
    ASSERT_NE(error, nullptr);
    NSKeyedArchiver archiver;
    archiver.encodeError(error, "error");
    const auto bytes = archiver.finishEncoding();
    const auto received = NSKeyedUnarchiver(bytes).decodeError("error");
    EXPECT_EQ(lossesOfError(*received), list.losses(entries));
    EXPECT_EQ(received->localizedDescription(),
              "The file system cannot hold the whole list. It would lose: entry 4 (allow uid "
              "3000004): \"Administration\": only the owner has it.");
    EXPECT_EQ(list.whyNot(entries, true), nullptr) << "there is a nearest list";
}

TEST_F(AnItemList, OfAModeHasNoPlaceForOthersAndNoNearestList) {
    auto entries = readFile(false);
    const auto list = *ItemList::asRead(entries);
    const auto other = newEntry(CBPosixUser{somebody}, MVAclGroupRead);
    EXPECT_FALSE(list.holdsChoice(*other, MVAclGroupRead));
    EXPECT_FALSE(list.holdsBox(*other, box(*other, "Read Data")));
    EXPECT_TRUE(list.holdsChoice(*newEntry(CBEveryone{}, MVAclGroupWrite), MVAclGroupRead));
    entries.push_back(other);
    const auto error = list.whyNot(entries, true);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code(), EOPNOTSUPP);
    EXPECT_TRUE(lossesOfError(*error).empty()) << "nothing to accept";
}

TEST_F(AnItemList, TellsWhetherWhoMakesAnItemHasNoRightToIt) {
    const auto entryBelow = [](const CBPosixIdentity& who, std::int32_t tag, std::int64_t choice) {
        auto entry =
            MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag,
                                     MVAclEntry::newEntryForDirectory(true)->permissions(), false);
        for (const auto& node : entry->permissions()[3]->childNodes())
            MVTreeNode::setStateOf(*node, MVStateOn);
        entry->setPermissionGroup(choice);
        return entry;
    };
    const auto others = entryBelow(CBPosixUser{somebody}, 1, MVAclGroupRead);
    const auto onlyHere =
        MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixUser{itemOwner}), 1,
                                 MVAclEntry::newEntryForDirectory(true)->permissions(), false);
    const auto leaves = [&](MVAclStorage storage, bool isDirectory, ItemList::Entries entries) {
        entries.front()->setOrigin(MVAclOrigin::initWithValues(
            {NSURL::fileURLWithPath("/item"), isDirectory, itemOwner, itemGroup, storage, ""}));
        return ItemList::asRead(entries)->leavesCreatorWithout(entries);
    };
    constexpr auto nfs4 = MVAclStorage::nfs4;
    EXPECT_TRUE(leaves(nfs4, true, {others, onlyHere}));
    EXPECT_TRUE(leaves(nfs4, true, {others, entryBelow(CBEveryone{}, 2, MVAclGroupRead)}));
    EXPECT_FALSE(leaves(nfs4, true, {onlyHere})) << "nothing is inherited";
    for (const CBPosixIdentity& who :
         {CBPosixIdentity{CBPosixUser{itemOwner}}, CBPosixIdentity{CBCreator{false}},
          CBPosixIdentity{CBEveryone{}}})
        EXPECT_FALSE(leaves(nfs4, true, {others, entryBelow(who, 1, MVAclGroupRead)}));
    EXPECT_FALSE(leaves(MVAclStorage::posix, true, {others}));
}

TEST_F(AnItemList, AnOriginIsSharedByTheEntriesOfAnArchive) {
    struct Message {
        std::vector<std::shared_ptr<MVAclEntry>> entries;
    } message{readFile()};
    NSKeyedArchiver archiver;
    archiver.encodeObjects(message.entries, "entries");
    const auto bytes = archiver.finishEncoding();
    const auto copies = NSKeyedUnarchiver(bytes).decodeObjects<MVAclEntry>(
        "entries", {&NSArrayClass, &MVAclEntry::classObject()});
    ASSERT_EQ(copies.size(), 3U);
    ASSERT_NE(copies[0]->origin(), nullptr);
    EXPECT_TRUE(copies[0]->origin()->isEqual(message.entries[0]->origin().get()));
    EXPECT_EQ(copies[0]->origin(), copies[2]->origin());
}

}  // namespace
}  // namespace morvane
