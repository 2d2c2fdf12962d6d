// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "EditScript.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using acltest::box;
using acltest::flatTree;
using acltest::states;

class EditScript : public testing::Test {
  protected:
    /// The owner's entry, and one for alice that allows reading and writing.
    explicit EditScript(bool isFolder = false)
        : editor_({MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixUser{1000}), 1,
                                            flatTree(1, 1, 0), false),
                   MVAclEntry::newEntryForDirectory(isFolder)},
                  [=](Problem&) { return isFolder; }) {}

    Problem run(std::string_view script) { return runEditScript(script, editor_); }
    const MVAclEntry& entry(std::size_t i) { return *editor_.entries().at(i); }

    acltest::World world_;
    AclEditor editor_;
};

class EditScriptForAFolder : public EditScript {
  protected:
    EditScriptForAFolder() : EditScript(true) {}
};

TEST_F(EditScript, ChangesABoxByItsNameAndTheGroupFollows) {
    EXPECT_EQ(run("entry 2; off \"Write Data\""), std::nullopt);
    EXPECT_EQ(states(entry(1), 1), (std::vector<std::int64_t>{0, 1, 1, 1, 1}));
    EXPECT_EQ(box(entry(1), 1).state(), MVStateMixed);
    EXPECT_EQ(entry(1).permissionGroup(), MVAclGroupCustom);
}

TEST_F(EditScript, ChangesAGroupByItsNameAndTheBoxesFollow) {
    EXPECT_EQ(run("entry 2; off Write"), std::nullopt);
    EXPECT_EQ(states(entry(1), 1), (std::vector<std::int64_t>{0, 0, 0, 0, 0}));
    EXPECT_EQ(entry(1).permissionGroup(), MVAclGroupRead);
}

TEST_F(EditScript, TogglesAMixedGroupOn) {
    EXPECT_EQ(run("entry 2; off 'Write Data'; toggle Write"), std::nullopt);
    EXPECT_EQ(states(entry(1), 1), (std::vector<std::int64_t>{1, 1, 1, 1, 1}));
}

TEST_F(EditScript, TogglesABoxThatIsOnOff) {
    EXPECT_EQ(run("entry 2; toggle 'read data'"), std::nullopt);
    EXPECT_EQ(box(entry(1), 0, 0).state(), MVStateOff);
}

TEST_F(EditScript, FindsABoxWithinItsGroup) {
    EXPECT_EQ(run("entry 2; off \"Read/Read Data\""), std::nullopt);
    EXPECT_EQ(box(entry(1), 0, 0).state(), MVStateOff);
    EXPECT_EQ(
        run("entry 2; off \"Write/Read Data\"")
            .value_or("")
            .find("command 2: entry 2 has no box 'Write/Read Data'; it has 'Read', 'Read Data'"),
        0u);
}

TEST_F(EditScript, ChoosesThePermissions) {
    EXPECT_EQ(run("entry 2; permissions all"), std::nullopt);
    EXPECT_EQ(entry(1).permissionGroup(), MVAclGroupAll);
    EXPECT_EQ(box(entry(1), 2, 1).state(), MVStateOn);
}

TEST_F(EditScript, OffersNoPermissionsForTheOwnersEntryOnly) {
    EXPECT_EQ(run("entry 1; permissions none"), std::nullopt);
    EXPECT_EQ(entry(0).permissionGroup(), MVAclGroupNone);
    EXPECT_EQ(run("entry 2; permissions none"),
              "command 2: 'none' is no choice for entry 2; it is one of all, read-write, read, "
              "write");
}

TEST_F(EditScript, AddsAnEntryForAUserAGroupOrEveryone) {
    EXPECT_EQ(run("add user:bob; deny\nadd group:staff\nadd everyone"), std::nullopt);
    ASSERT_EQ(editor_.entries().size(), 5u);
    EXPECT_EQ(entry(2).identity()->name(), "bob");
    EXPECT_EQ(entry(2).tag(), 2);
    EXPECT_EQ(entry(3).identity()->name(), "staff");
    EXPECT_TRUE(entry(3).identity()->isGroup());
    EXPECT_EQ(entry(4).identity()->name(), "everyone");
    EXPECT_EQ(entry(4).tag(), 1);
}

TEST_F(EditScript, TakesANumberForAUserWithoutAName) {
    EXPECT_EQ(run("entry 2; who user:4711"), std::nullopt);
    EXPECT_EQ(entry(1).uuid(), uuidOfPosixIdentity(CBPosixUser{4711}));
}

TEST_F(EditScript, RemovesAnEntryAndTheOthersKeepTheirNumbers) {
    EXPECT_EQ(run("add user:bob; entry 2; remove; entry 3; deny"), std::nullopt);
    ASSERT_EQ(editor_.entries().size(), 2u);
    EXPECT_EQ(entry(1).identity()->name(), "bob");
    EXPECT_EQ(entry(1).tag(), 2);
}

TEST_F(EditScript, KeepsTheEntriesThatEveryItemHas) {
    EXPECT_EQ(run("entry 1; remove"),
              "command 2: the entry of alice is what every item has; take its permissions away "
              "instead");
    EXPECT_EQ(editor_.entries().size(), 2u);
}

TEST_F(EditScript, RefusesToChangeAnInheritedEntryUntilItIsTheItemsOwn) {
    EXPECT_EQ(run("entry 2; inherited yes; off Write"),
              "command 3: entry 2 is inherited; make it the item's own first");
    EXPECT_EQ(entry(1).permissionGroup(), MVAclGroupReadWrite);
    EXPECT_EQ(run("entry 2; inherited no; off Write"), std::nullopt);
}

TEST_F(EditScriptForAFolder, ChangesWhatTheEntryAppliesTo) {
    EXPECT_EQ(run("entry 2; on 'Child folders'; on 'All descendants'"), std::nullopt);
    EXPECT_EQ(entry(1).applicableTo(), "This item, Child folders, All descendants");
}

TEST_F(EditScriptForAFolder, RefusesABoxThatTheOthersLock) {
    EXPECT_EQ(run("entry 2; on \"All descendants\""),
              "command 2: the box 'All descendants' cannot be changed as the others stand");
}

TEST_F(EditScript, StopsAtTheFirstCommandThatCannotBeDone) {
    EXPECT_EQ(run("entry 2; deny; entry 7; allow"),
              "command 3: '7' is no entry; they are numbered from 1 to 2");
    EXPECT_EQ(entry(1).tag(), 2);
}

TEST_F(EditScript, SkipsEmptyCommandsAndComments) {
    EXPECT_EQ(run(" ;; # nothing; here\n entry 2 # alice\n\n;deny;"), std::nullopt);
    EXPECT_EQ(entry(1).tag(), 2);
}

TEST_F(EditScript, TellsWhatIsWrongWithACommand) {
    EXPECT_EQ(run("deny"),
              "command 1: no entry is chosen; 'entry NUMBER' chooses one, 'add WHO' makes one");
    EXPECT_EQ(run("entry 0"), "command 1: '0' is no entry; they are numbered from 1 to 2");
    EXPECT_EQ(run("entry 1x"), "command 1: '1x' is no entry; they are numbered from 1 to 2");
    EXPECT_EQ(run("add user:\xC3\xA9va"),
              "command 1: there is no user '\xC3\xA9va'; check the spelling, or write its number");
    EXPECT_EQ(run("add bob"),
              "command 1: 'bob' is nobody; write user:NAME, group:NAME, everyone, "
              "creator or creator-group");
    EXPECT_EQ(run("on 'Read"), "command 1: a quotation mark is not closed: 'Read");
    EXPECT_EQ(run("on"), "command 1: 'on' wants one word behind it; quote what holds blanks");
    EXPECT_EQ(run("on Read Data"),
              "command 1: 'on' wants one word behind it; quote what holds blanks");
    EXPECT_EQ(run("entry 2; deny him"), "command 2: 'deny' stands alone");
    EXPECT_EQ(run("entry 2; inherited maybe"), "command 2: 'inherited' is followed by yes or no");
    EXPECT_EQ(run("grant\x1b[2J"),
              "command 1: 'grant\\x1b[2J' is no command; there are entry, add, remove, on, off, "
              "toggle, permissions, allow, deny, who and inherited");
    EXPECT_EQ(run("entry 2; remove; deny"),
              "command 3: no entry is chosen; 'entry NUMBER' chooses "
              "one, 'add WHO' makes one");
    EXPECT_EQ(run("entry 2"), "command 1: '2' is no entry; they are numbered from 1 to 1");
    EXPECT_EQ(run("entry 1; add user:bob; remove; entry 2"), "command 4: entry 2 was removed");
}

TEST_F(EditScript, RefusesToWriteAnEntryWhoseUserIsNotKnown) {
    world_.users->userName = "";
    AclEditor editor({MVAclEntry::newEntryForDirectory(false)}, [](Problem&) { return false; });
    editor.entries()[0]->setIdentity(nullptr);
    EXPECT_EQ(editor.unwritable(),
              "entry 1 is for a user who is not known, and would apply to everyone; say whom it is "
              "for");
    EXPECT_EQ(editor_.unwritable(), std::nullopt);
}

TEST(AnIdentityWritten, HasNotTheNumberThatStandsForNone) {
    const acltest::World world;
    Problem problem;
    EXPECT_EQ(identityWritten("user:4294967295", problem), nullptr);
    EXPECT_EQ(problem,
              "no user or group can have the number 4294967295; the system takes it for none");
}

}  // namespace
}  // namespace morvane
