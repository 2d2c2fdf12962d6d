// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

constexpr std::uint32_t owner = 3000001;
constexpr std::uint32_t owningGroup = 3000002;
constexpr std::uint32_t named = 3000004;
constexpr PosixRights readWrite = PosixRead | PosixWrite;

class EntryTexts : public testing::Test {
  protected:
    ~EntryTexts() override { KDLocalizedString::setLookup({}); }

    static ItemList::Entries read(const PosixAcl& acl) {
        auto entries = entriesOfPosixAcl(acl);
        const auto origin = MVAclOrigin::initWithValues(
            {NSURL::fileURLWithPath("/item"), acl.isDirectory, acl.owner, acl.group,
             acl.hasLists ? MVAclStorage::posix : MVAclStorage::mode, digestOf(acl)});
        for (const auto& entry : entries)
            entry->setOrigin(origin);
        return entries;
    }
    static ItemList::Entries readItem(bool isFolder, bool hasLists = true) {
        return read({.owner = owner,
                     .group = owningGroup,
                     .isDirectory = isFolder,
                     .access = {readWrite, PosixRead, PosixNothing, {}, {}, {}},
                     .defaults = {},
                     .hasLists = hasLists});
    }
    static std::shared_ptr<MVAclEntry> entryFor(const CBPosixIdentity& who, bool isFolder) {
        auto entry = MVAclEntry::newEntryForDirectory(isFolder);
        entry->setUuid(uuidOfPosixIdentity(who));
        return MVAclEntry::initWithUuid(entry->uuid(), MVAclTagAllow, entry->permissions(), false);
    }
    static ItemList listOfNfs4(bool isFolder) {
        const auto entry = entryFor(CBEveryone{}, isFolder);
        entry->setOrigin(
            MVAclOrigin::initWithValues({NSURL::fileURLWithPath("/item"), isFolder, owner,
                                         owningGroup, MVAclStorage::nfs4, "digest"}));
        return *ItemList::asRead({entry});
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
    static std::vector<std::string> shown(const std::vector<EntryChoice>& choices) {
        std::vector<std::string> texts;
        for (const auto& choice : choices)
            texts.push_back(shownText(choice.name) +
                            (choice.whyNot.empty() ? "" : " - " + shownText(choice.whyNot)));
        return texts;
    }

    acltest::World world_;
};

using Texts = std::vector<std::string>;

TEST_F(EntryTexts, SayWhomAnEntryIsFor) {
    const auto base = readItem(false);
    EXPECT_EQ(shownText(whoText(*base[0])), "uid 3000001 (owner)");
    EXPECT_EQ(subjectOfEntry(*base[0]), EntrySubject::owner);
    EXPECT_EQ(shownText(whoText(*base[1])), "gid 3000002 (owning group)");
    EXPECT_EQ(subjectOfEntry(*base[1]), EntrySubject::owningGroup);
    EXPECT_EQ(shownText(whoText(*base[2])), "everyone");
    EXPECT_EQ(subjectOfEntry(*base[2]), EntrySubject::everyone);
    const auto alice = entryFor(CBPosixUser{1000}, true);
    EXPECT_EQ(shownText(whoText(*alice)), "user alice");
    EXPECT_EQ(subjectOfEntry(*alice), EntrySubject::user);
    EXPECT_EQ(subjectOfEntry(*entryFor(CBPosixGroup{named}, true)), EntrySubject::group);
    EXPECT_EQ(shownText(whoText(*entryFor(CBCreator{false}, true))), "creator");
    EXPECT_EQ(subjectOfEntry(*entryFor(CBCreator{false}, true)), EntrySubject::creator);
    EXPECT_EQ(subjectOfEntry(*entryFor(CBCreator{true}, true)), EntrySubject::creatorGroup);
    alice->setUuid(*NSUUID::initWithUUIDString("00000000-0000-4000-8000-000000000000"));
    EXPECT_EQ(subjectOfEntry(*alice), EntrySubject::nobody);
}

TEST_F(EntryTexts, AreValidUtf8WhateverTheNamesAre) {
    const auto entry = entryFor(CBPosixUser{named}, false);
    entry->setIdentity(std::make_shared<const CBIdentity>(uuidOfPosixIdentity(CBPosixUser{named}),
                                                          "caf\xe9", false));
    EXPECT_EQ(shownText(whoText(*entry)), "user caf\ufffd");
    EXPECT_EQ(shownName("caf\xe9.txt"), "caf\ufffd.txt");
}

TEST_F(EntryTexts, SayTheRuleTheChoiceAndTheMark) {
    const auto entry = entryFor(CBPosixUser{1000}, false);
    EXPECT_EQ(shownText(ruleText(entry->tag())), "Allow");
    EXPECT_EQ(shownText(ruleText(MVAclTagDeny)), "Deny");
    EXPECT_EQ(shownText(ruleText(7)), "Tag 7");
    EXPECT_EQ(shownText(permissionsText(*entry)), "Read and Write");
    EXPECT_EQ(shownText(appliesToText(*entry)), "This item");
    EXPECT_EQ(shownText(inheritedText(*entry)), "");
    MVTreeNode::setStateOf(box(*entry, "Write Data"), MVStateOff);
    EXPECT_EQ(shownText(permissionsText(*entry)), "Custom (Read, part of Write)");
    EXPECT_EQ(shownText(boxText(box(*entry, "Write Data"))), "Write Data");
    entry->setInherited(true);
    EXPECT_EQ(shownText(inheritedText(*entry)), "inherited");
}

TEST_F(EntryTexts, AreSaidInTheLanguageOfTheHost) {
    KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
        if (key.starts_with('<'))
            return key;  // a name that was made in this language
        return table.empty() ? "<" + key + ">" : "<" + table + " " + key + ">";
    });
    const auto entry = readItem(false).front();
    EXPECT_EQ(shownText(whoText(*entry)), "<uid 3000001 (owner)>");
    EXPECT_EQ(shownText(ruleText(MVAclTagDeny)), "<Deny>");
    EXPECT_EQ(shownText(permissionsText(*entry)), "<Permissions Read and Write>");
    EXPECT_EQ(shownText(permissionChoices(*entry, nullptr).back().name), "<Permissions None>");
    EXPECT_EQ(shownText(boxText(*entry->permissions().front())), "<ACL Read>");
}

TEST_F(EntryTexts, HaveTheLettersOfThePosixList) {
    auto entries = read({.owner = owner,
                         .group = owningGroup,
                         .isDirectory = false,
                         .access = {readWrite,
                                    PosixNothing,
                                    PosixRead,
                                    PosixEverything,
                                    {{named, PosixExecute}},
                                    {{named, readWrite}}},
                         .defaults = {}});
    Texts letters;
    for (const auto& entry : entries)
        letters.push_back(shownText(whoText(*entry)) + " " + shownText(ruleText(entry->tag())) +
                          " " + lettersOfEntry(*entry, MVAclStorage::posix));
    EXPECT_EQ(letters, (Texts{"uid 3000001 (owner) Allow rw-", "uid 3000004 Deny rw-",
                              "uid 3000004 Allow --x", "gid 3000002 (owning group) Allow ---",
                              "gid 3000004 Allow rw-", "everyone Allow r--"}));
}

TEST_F(EntryTexts, HaveTheLettersOfAnAllowDenyList) {
    const auto entry = entryFor(CBPosixUser{named}, true);
    EXPECT_EQ(lettersOfEntry(*entry, MVAclStorage::nfs4), "rwaDdxtTnNc");
    entry->setPermissionGroup(MVAclGroupAll);
    EXPECT_EQ(lettersOfEntry(*entry, MVAclStorage::nfs4), "rwaDdxtTnNcCo");
    entry->setPermissionGroup(MVAclGroupRead);
    EXPECT_EQ(lettersOfEntry(*entry, MVAclStorage::nfs4), "rxtnc");
}

TEST_F(EntryTexts, TellWhatTheItemIs) {
    const auto item = readItem(true).front()->origin()->values();
    EXPECT_EQ(shownText(kindText(item)), "folder");
    EXPECT_EQ(shownText(ownerText(item)), "uid 3000001");
    EXPECT_EQ(shownText(owningGroupText(item)), "gid 3000002");
    auto alices = item;
    alices.owner = 1000;
    EXPECT_EQ(shownText(ownerText(alices)), "user alice");
    std::set<std::string> storages;
    for (const auto storage : {MVAclStorage::posix, MVAclStorage::mode, MVAclStorage::nfs4})
        storages.insert(shownText(storageText(storage)));
    EXPECT_EQ(storages, (std::set<std::string>{"POSIX list", "NFSv4 list",
                                               "mode (the file system keeps no lists)"}));
}

TEST_F(EntryTexts, OfferThePermissionsThatTheListCanHold) {
    const auto base = readItem(false);
    const auto list = *ItemList::asRead(base);
    const auto other = entryFor(CBPosixUser{named}, false);
    EXPECT_EQ(shown(permissionChoices(*other, &list)),
              (Texts{"All - only the owner has it", "Read and Write", "Read", "Write"}));
    EXPECT_EQ(shown(permissionChoices(*other, nullptr)),
              (Texts{"All", "Read and Write", "Read", "Write"}));
    EXPECT_EQ(shown(permissionChoices(*base.front(), &list)),
              (Texts{"All", "Read and Write", "Read", "Write", "None"}));
    MVTreeNode::setStateOf(box(*other, "Write Data"), MVStateOff);
    EXPECT_EQ(shown(permissionChoices(*other, nullptr)).back(),
              "Custom (Read, part of Write) - it is made of single boxes");
    other->setInherited(true);
    for (const auto& choice : permissionChoices(*other, &list))
        EXPECT_EQ(choice.whyNot, whyNotChanged(*other)) << choice.name;
    EXPECT_EQ(shownText(whyNotChanged(*other)), "it is inherited; make it the item's own first");
}

TEST_F(EntryTexts, OfferTheRulesThatTheListCanHold) {
    const auto base = readItem(false);
    const auto list = *ItemList::asRead(base);
    EXPECT_EQ(shown(ruleChoices(*entryFor(CBPosixUser{named}, false), &list)),
              (Texts{"Allow", "Deny"}));
    EXPECT_EQ(shown(ruleChoices(*base.front(), nullptr)),
              (Texts{"Allow", "Deny - an entry of three rights only allows"}));
    const auto mode = *ItemList::asRead(readItem(false, false));
    EXPECT_EQ(shown(ruleChoices(*entryFor(CBPosixUser{named}, false), &mode)),
              (Texts{"Allow",
                     "Deny - the file system keeps no lists: there are only the owner, the owning "
                     "group and everyone"}));
}

TEST_F(EntryTexts, OfferWhatAFoldersEntryCanApplyTo) {
    const auto list = *ItemList::asRead(readItem(true));
    const auto entry = entryFor(CBPosixUser{named}, true);
    const Texts all = shown(appliesToChoices(*entry, nullptr));
    EXPECT_EQ(all.size(), 11U);
    EXPECT_EQ(all.front(), "This item");
    const auto nfs4 = listOfNfs4(true);
    EXPECT_EQ(shown(appliesToChoices(*entry, &nfs4)), all) << "it holds them all";
    const auto posix = appliesToChoices(*entry, &list);
    std::vector<std::string> possible;
    for (const auto& choice : posix) {
        if (choice.whyNot.empty())
            possible.push_back(shownText(choice.name));
        else
            EXPECT_EQ(choice.whyNot.english(),
                      "a POSIX list applies to everything inside the folder or to nothing");
    }
    EXPECT_EQ(possible,
              (Texts{"This item", "This item, Child files, Child folders, All descendants",
                     "Not this item, Child files, Child folders, All descendants"}));
    const auto mode = *ItemList::asRead(readItem(true, false));
    EXPECT_EQ(shown(appliesToChoices(*entryFor(CBPosixUser{owner}, true), &mode))[1],
              "This item, Child files, Child folders, All descendants - the file system keeps no "
              "lists, and nothing is inherited");
    const auto files = entryFor(CBPosixUser{named}, false);
    EXPECT_EQ(shown(appliesToChoices(*files, &list)), (Texts{"This item"}));
}

TEST_F(EntryTexts, SetWhatAnEntryAppliesToFromAnyChoiceToAnyOther) {
    const auto entry = entryFor(CBPosixUser{named}, true);
    const auto choices = appliesToChoices(*entry, nullptr);
    for (const auto& from : choices) {
        for (const auto& to : choices) {
            ASSERT_TRUE(setAppliesTo(*entry, from.code)) << from.name;
            ASSERT_TRUE(setAppliesTo(*entry, to.code)) << from.name << " to " << to.name;
            EXPECT_EQ(appliesToCode(*entry), to.code);
            EXPECT_EQ(appliesToText(*entry).english(), shownText(to.name));
        }
    }
    entry->setInherited(true);
    const auto now = appliesToCode(*entry);
    EXPECT_FALSE(setAppliesTo(*entry, choices.front().code));
    EXPECT_EQ(appliesToCode(*entry), now);
}

TEST_F(EntryTexts, SayWhyABoxCannotBeOn) {
    const auto list = *ItemList::asRead(readItem(true));
    const auto entry = entryFor(CBPosixUser{named}, true);
    const auto why = [&](const char* name) {
        return shownText(whyNotBox(*entry, box(*entry, name), &list));
    };
    EXPECT_EQ(why("Traverse Folder"), "");
    EXPECT_EQ(why("Write Attributes"), "only the owner has it");
    EXPECT_EQ(why("Change Owner"), "only root has it");
    EXPECT_EQ(why("Delete"), "who may delete an item is told by the folder that it is in");
    EXPECT_EQ(why("All descendants"), "the other boxes decide it");
    EXPECT_EQ(shownText(whyNotBox(*entry, box(*entry, "Change Owner"), nullptr)), "");
    entry->setInherited(true);
    EXPECT_EQ(why("Traverse Folder"), shownText(whyNotChanged(*entry)));
    EXPECT_EQ(why("All descendants"), shownText(whyNotChanged(*entry)));
}

TEST_F(EntryTexts, SayWhichEntriesStay) {
    const auto base = readItem(false);
    EXPECT_EQ(shownText(whyNotRemoved(*base[2])),
              "the entry of everyone is what every item has; take its permissions away instead");
    EXPECT_EQ(shownText(whyNotRemoved(*entryFor(CBPosixUser{named}, false))), "");
}

}  // namespace
}  // namespace morvane
