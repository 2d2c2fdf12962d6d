// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "EditScreen.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using acltest::box;
using acltest::flatTree;
using Pressed = EditScreen::Result;

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines{""};
    for (const char c : text) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
    return lines;
}

class Screen : public testing::Test {
  protected:
    Pressed press(std::initializer_list<char32_t> keys) {
        auto result = Pressed::goesOn;
        for (const auto key : keys)
            result = screen_.press(key);
        return result;
    }
    Pressed type(std::string_view text) {
        auto result = Pressed::goesOn;
        for (const char c : text)
            result = screen_.press(static_cast<unsigned char>(c));
        return result;
    }
    std::vector<std::string> drawn(std::size_t rows = 40, std::size_t columns = 80) {
        return linesOf(screen_.draw(rows, columns));
    }
    const MVAclEntry& entry(std::size_t i) { return *editor_.entries().at(i); }

    acltest::World world_;
    AclEditor editor_{{MVAclEntry::initWithUuid(uuidOfPosixIdentity(CBPosixUser{1000}), 1,
                                                flatTree(1, 1, 0), false),
                       MVAclEntry::newEntryForDirectory(false)},
                      [](Problem&) { return false; }};
    EditScreen screen_{editor_, "notes.txt", Style(false)};
};

TEST_F(Screen, ShowsTheEntriesWithTheFirstOneChosen) {
    const auto lines = drawn();
    EXPECT_EQ(lines[0], "notes.txt");
    EXPECT_EQ(lines[2], "> 1. user alice (owner)  Allow  rw-  Read and Write  This item");
    EXPECT_EQ(lines[3], "  2. user alice  Allow  rwx  Read and Write  This item");
}

TEST_F(Screen, OpensAnEntryToItsBoxesAndClosesIt) {
    press({keyDown, keyRight, keyDown});
    auto lines = drawn();
    EXPECT_EQ(lines[4], ">     [x] Read");
    EXPECT_EQ(lines[5], "          [x] Read Data");
    press({keyLeft});
    lines = drawn();
    EXPECT_EQ(lines[3], "> 2. user alice  Allow  rwx  Read and Write  This item");
    EXPECT_EQ(lines[4], "");
}

TEST_F(Screen, MovesUpAndDownAndNotBeyondTheEnds) {
    press({keyUp, keyDown, keyDown, keyDown});
    EXPECT_EQ(drawn()[3].substr(0, 4), "> 2.");
    press({keyUp, keyUp});
    EXPECT_EQ(drawn()[2].substr(0, 4), "> 1.");
}

TEST_F(Screen, OpensAndClosesAnEntryWithTheSpaceBar) {
    press({' '});
    EXPECT_EQ(drawn()[3], "      [x] Read");
    press({' '});
    EXPECT_EQ(drawn()[3].substr(0, 4), "  2.");
    EXPECT_EQ(drawn()[0], "notes.txt");
}

TEST_F(Screen, MarksAnEntryAsInheritedAndBack) {
    press({keyDown, 'i', 't'});
    EXPECT_TRUE(entry(1).inherited());
    EXPECT_EQ(entry(1).tag(), 1);
    EXPECT_EQ(drawn()[5], "entry 2 is inherited; make it the item's own first");
    press({'i', 't'});
    EXPECT_FALSE(entry(1).inherited());
    EXPECT_EQ(entry(1).tag(), 2);
}

TEST_F(Screen, TakesBackAWholeCharacter) {
    press({'a', U'\u00e9', U'\u20ac', U'\U0001f600'});
    EXPECT_EQ(drawn()[5],
              "user:NAME, group:NAME or everyone: \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    press({keyBackspace, keyBackspace});
    EXPECT_EQ(drawn()[5], "user:NAME, group:NAME or everyone: \xC3\xA9");
    press({keyBackspace, keyBackspace});
    EXPECT_EQ(drawn()[5], "user:NAME, group:NAME or everyone: ");
}

TEST_F(Screen, TogglesABoxAndShowsItsGroupMixed) {
    press({keyDown, ' ', keyDown, keyDown, ' '});
    const auto lines = drawn();
    EXPECT_EQ(lines[0], "notes.txt (changed)");
    EXPECT_EQ(lines[3], "  2. user alice  Allow  -wx  Custom (part of Read, Write)  This item");
    EXPECT_EQ(lines[4], "      [-] Read");
    EXPECT_EQ(lines[5], ">         [ ] Read Data");
    EXPECT_EQ(box(entry(1), 0, 0).state(), MVStateOff);
}

TEST_F(Screen, GoesThroughThePermissionsThatAreOffered) {
    press({keyDown});
    std::vector<std::int64_t> codes;
    for (int i = 0; i != 4; ++i) {
        press({'g'});
        codes.push_back(entry(1).permissionGroup());
    }
    EXPECT_EQ(codes, (std::vector<std::int64_t>{MVAclGroupRead, MVAclGroupWrite, MVAclGroupAll,
                                                MVAclGroupReadWrite}));
}

TEST_F(Screen, OffersNoneForTheOwner) {
    press({'g', 'g', 'g'});
    EXPECT_EQ(entry(0).permissionGroup(), MVAclGroupNone);
}

TEST_F(Screen, TurnsAllowIntoDenyAndBack) {
    press({keyDown, 't'});
    EXPECT_EQ(entry(1).tag(), 2);
    press({'t'});
    EXPECT_EQ(entry(1).tag(), 1);
}

TEST_F(Screen, AsksWhomToAdd) {
    press({'a'});
    type("group:stafg");
    press({keyBackspace, 'f', keyEnter});
    ASSERT_EQ(editor_.entries().size(), 3u);
    EXPECT_EQ(drawn()[4], "> 3. group staff  Allow  rwx  Read and Write  This item");
}

TEST_F(Screen, TellsWhatIsWrongWithAnAnswerAndChangesNothing) {
    press({keyDown, 'w'});
    type("user:zoe");
    EXPECT_EQ(drawn()[5], "user:NAME, group:NAME or everyone: user:zoe");
    press({keyEnter});
    EXPECT_EQ(drawn()[5], "there is no user 'zoe'; check the spelling, or write its number");
    EXPECT_EQ(drawn()[0], "notes.txt");
}

TEST_F(Screen, LeavesAQuestionWithEscape) {
    press({'a', 'x', keyEscape});
    EXPECT_EQ(editor_.entries().size(), 2u);
    EXPECT_EQ(press({'q'}), Pressed::leave);
}

TEST_F(Screen, RemovesAnEntryAndChoosesTheOneBefore) {
    press({keyDown, 'd'});
    EXPECT_EQ(editor_.entries().size(), 1u);
    EXPECT_EQ(drawn()[2].substr(0, 4), "> 1.");
    press({'d'});
    EXPECT_EQ(drawn()[4].substr(0, 30), "the entry of alice is what eve");
}

TEST_F(Screen, SavesWithS) {
    EXPECT_EQ(press({'s'}), Pressed::save);
}

TEST_F(Screen, AsksBeforeChangesAreLost) {
    EXPECT_EQ(press({keyDown, 't', 'q'}), Pressed::goesOn);
    EXPECT_EQ(drawn()[5], "Leave without saving? (y/n)");
    EXPECT_EQ(press({'n'}), Pressed::goesOn);
    EXPECT_EQ(press({keyInterrupt, 'y'}), Pressed::leave);
}

TEST_F(Screen, LeavesAtTheEndOfInputWhateverIsAsked) {
    for (const auto question : {U'a', U'q'}) {
        press({keyDown, 't', question});
        EXPECT_EQ(press({keyEnd}), Pressed::leave);
        press({keyEscape});
    }
}

TEST_F(Screen, KeepsTheChosenLineAmongTheFewThatFit) {
    press({keyDown, keyRight});
    for (int i = 0; i != 5; ++i)
        press({keyDown});
    const auto lines = drawn(9, 80);
    // Title, what is above, three lines, what is below, message, two of keys.
    EXPECT_EQ(lines[1], "  ^ 4 lines above");
    EXPECT_EQ(lines[4], ">         [x] Read Extended Attributes");
    EXPECT_EQ(lines[5], "  v 10 lines below");
    press({keyUp});
    EXPECT_EQ(drawn(9, 80)[3], ">         [x] Read Attributes") << "the window stands still";
}

TEST_F(Screen, MarksWhatIsWiderThanTheTerminalAndMovesToTheSide) {
    EXPECT_EQ(drawn(40, 12)[2], "> 1. user a>");
    press({'>'});
    EXPECT_EQ(drawn(40, 12)[2], "> <r alice >");
    for (int i = 0; i != 20; ++i) {
        press({'>'});
        drawn(40, 12);
    }
    EXPECT_EQ(drawn(40, 12)[2], "> <This item");
    for (int i = 0; i != 20; ++i)
        press({'<'});
    EXPECT_EQ(drawn(40, 12)[2], "> 1. user a>");
}

TEST_F(Screen, NamesEveryKeyBelowTheListHoweverNarrowItIs) {
    for (const std::size_t columns : {80, 40, 20}) {
        std::string all;
        const auto lines = drawn(24, columns);
        for (std::size_t i = 6; i < lines.size(); ++i)
            all += lines[i] + "   ";
        EXPECT_EQ(all,
                  "Space change   s save   u undo   a add   d remove   / find   e access   "
                  "? all keys   q leave   ")
            << columns;
    }
}

TEST_F(Screen, GoesToTheEndsAndByPages) {
    press({keyRight, keyDown, keyBottom});
    EXPECT_EQ(drawn(9, 80)[4].substr(0, 4), "> 2.");
    press({keyPageUp});
    EXPECT_EQ(drawn(9, 80)[2], ">     [x] Read");
    press({keyPageDown});
    EXPECT_EQ(drawn(9, 80)[4].substr(0, 4), "> 2.");
    press({keyHome, keyPageUp});
    EXPECT_EQ(drawn(9, 80)[2].substr(0, 4), "> 1.");
}

TEST_F(Screen, MovesByLettersAsByArrows) {
    press({'j', 'l', 'j'});
    EXPECT_EQ(drawn()[4], ">     [x] Read");
    press({'k', 'j', 'h'});
    EXPECT_EQ(drawn()[3].substr(0, 4), "> 2.");
    EXPECT_EQ(drawn()[4], "");
}

TEST_F(Screen, FindsATextAlsoInAnEntryThatIsClosed) {
    press({'/'});
    type("APPEND");
    EXPECT_EQ(drawn()[5], "Find: APPEND");
    press({keyEnter});
    const auto lines = drawn();
    EXPECT_NE(std::find(lines.begin(), lines.end(), ">         [x] Append Data"), lines.end());
    press({'/'});
    type("alice");
    press({keyEnter});
    EXPECT_EQ(drawn()[2].substr(0, 4), "> 1.") << "from the end it goes on at the beginning";
    press({'n'});
    EXPECT_EQ(drawn()[3].substr(0, 4), "> 2.");
    press({'/'});
    type("nowhere");
    press({keyEnter});
    const auto told = drawn();
    EXPECT_NE(std::find(told.begin(), told.end(), "'nowhere' is in no line"), told.end());
}

TEST_F(Screen, TakesChangesBackAndMakesThemAgain) {
    const auto& second = entry(1);
    press({keyDown, ' ', keyDown, keyDown, ' '});  // a box off
    press({keyHome, keyDown, 't', 'i'});
    EXPECT_EQ(second.tag(), MVAclTagDeny);
    press({'u'});
    EXPECT_FALSE(second.inherited());
    press({'u'});
    EXPECT_EQ(second.tag(), MVAclTagAllow);
    EXPECT_EQ(box(second, 0, 0).state(), MVStateOff);
    EXPECT_EQ(drawn()[0], "notes.txt (changed)");
    press({'u'});
    EXPECT_EQ(box(second, 0, 0).state(), MVStateOn);
    EXPECT_EQ(drawn()[3], "> 2. user alice  Allow  rwx  Read and Write  This item");
    EXPECT_EQ(drawn()[0], "notes.txt");
    press({'u'});
    const auto told = drawn();
    EXPECT_NE(std::find(told.begin(), told.end(), "There is nothing to take back."), told.end());
    press({'U', keyRedo, 'U'});
    EXPECT_EQ(box(second, 0, 0).state(), MVStateOff);
    EXPECT_EQ(second.permissionGroup(), MVAclGroupCustom);
    EXPECT_TRUE(second.inherited());
    EXPECT_EQ(second.tag(), MVAclTagDeny);
    press({'U'});
    const auto again = drawn();
    EXPECT_NE(std::find(again.begin(), again.end(), "There is nothing to make again."),
              again.end());
}

TEST_F(Screen, BringsAnEntryThatWasRemovedBackAsItWasAndTakesANewOneAway) {
    const auto second = editor_.entries()[1];
    press({keyDown, 'd', 'u'});
    ASSERT_EQ(editor_.entries().size(), 2U);
    EXPECT_EQ(editor_.entries()[1], second);
    press({'a'});
    type("everyone");
    press({keyEnter, 'u'});
    EXPECT_EQ(editor_.entries().size(), 2U);
    press({'g', 'U'});
    EXPECT_EQ(editor_.entries().size(), 2U) << "a change forgets what was taken back";
}

TEST_F(Screen, LeavesWithoutAQuestionOnceAllIsTakenBack) {
    EXPECT_EQ(press({keyDown, 't', 'u', 'q'}), Pressed::leave);
}

TEST_F(Screen, ShowsAllKeysUntilAnotherIsPressed) {
    press({'?'});
    auto lines = drawn();
    EXPECT_EQ(lines[0], "Keys");
    EXPECT_EQ(lines[2], "> Up Down k j           move");
    EXPECT_EQ(lines.back(), "Up, Down: move   other keys: back to the list");
    drawn(12, 40);
    press({keyBottom});
    lines = drawn(12, 40);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "> q                     leave"), lines.end());
    EXPECT_EQ(press({'q'}), Pressed::goesOn);
    EXPECT_EQ(drawn()[0], "notes.txt");
}

TEST_F(Screen, StopsForTheShellWhateverIsAsked) {
    EXPECT_EQ(press({keySuspend}), Pressed::suspend);
    EXPECT_EQ(press({'a', keySuspend}), Pressed::suspend);
    EXPECT_EQ(drawn()[5], "user:NAME, group:NAME or everyone: ");
}

TEST_F(Screen, KeepsTheEndOfALongAnswerInSight) {
    press({'a'});
    type("user:a-name-that-goes-on-and-on-and-ends-here");
    EXPECT_EQ(drawn(24, 40)[5], "a-name-that-goes-on-and-on-and-ends-here");
}

EntryList readFrom(EntryList entries, MVAclStorage storage, MVAclOrigin::StoredLists stored = {}) {
    const auto origin = MVAclOrigin::initWithValues(
        {NSURL::fileURLWithPath("/x"), false, 4711, 4711, storage, "digest"}, std::move(stored));
    for (const auto& entry : entries)
        entry->setOrigin(origin);
    return entries;
}

/// Entries that were read from a POSIX list.
class ScreenOfAList : public Screen {
  protected:
    ScreenOfAList() {
        asked_ = std::make_unique<EditScreen>(
            read_, "notes.txt", Style(true),
            EditSources{[this] { return changes_; },
                        [this](const NSUUID& who) -> Result<PermissionList> {
                            who_ = who;
                            if (failure_)
                                return Failure{failure_};
                            return MVAclEntry::newEntryForDirectory(false)->permissions();
                        }});
    }
    Pressed pressed(std::initializer_list<char32_t> keys) {
        auto result = Pressed::goesOn;
        for (const auto key : keys)
            result = asked_->press(key);
        return result;
    }

    AclEditor read_{readFrom(editor_.entries(), MVAclStorage::posix),
                    [](Problem&) { return false; }};
    std::vector<std::string> changes_;
    NSErrorRef failure_;
    std::optional<NSUUID> who_;
    std::unique_ptr<EditScreen> asked_;
};

TEST_F(ScreenOfAList, DimsABoxThatCannotBeHeldAndSaysWhy) {
    pressed({keyDown, keyRight, keyBottom});
    pressed({keyUp});
    EXPECT_NE(asked_->draw(40, 80).find("\x1b[2m          [ ] Change Owner\x1b[0m"),
              std::string::npos)
        << asked_->draw(40, 80);
    pressed({keyDown});
    EXPECT_NE(asked_->draw(40, 80).find("\nIt cannot be on: only root has it\n"), std::string::npos)
        << asked_->draw(40, 80);
    pressed({' '});
    EXPECT_NE(
        asked_->draw(40, 80).find("\n'Change Owner' cannot be switched on: only root has it\n"),
        std::string::npos);
    EXPECT_EQ(pressed({'q'}), Pressed::leave) << "nothing has changed";
}

TEST_F(ScreenOfAList, DimsAKeyThatCanDoNothingToTheEntry) {
    const auto isDim = [&](const std::string& key) {
        pressed({'?'});
        const auto shown = asked_->draw(40, 80);
        pressed({'x'});
        return shown.find("\x1b[2m  " + key + "  ") != std::string::npos;
    };
    for (const auto* const key : {"g", "t", "w", "i", "s"})
        EXPECT_FALSE(isDim(key)) << key;
    pressed({'i'});
    for (const auto* const key : {"g", "t", "w"})
        EXPECT_TRUE(isDim(key)) << key;
    EXPECT_FALSE(isDim("i"));
}

TEST_F(ScreenOfAList, ShowsBesideTheBoxesWhatSomebodyCanReallyDo) {
    pressed({keyDown, keyRight, 'e'});
    EXPECT_NE(asked_->draw(40, 80).find("Whose access, user:NAME or group:NAME: "),
              std::string::npos);
    for (const char c : std::string("user:alice"))
        pressed({static_cast<char32_t>(c)});
    pressed({keyEnter});
    EXPECT_EQ(who_, uuidOfPosixIdentity(CBPosixUser{1000}));
    const auto shown = asked_->draw(40, 100);
    EXPECT_NE(shown.find("[x] Write Data                        user alice: yes\n"),
              std::string::npos)
        << shown;
    EXPECT_NE(shown.find("[ ] Change Owner                      user alice: no"), std::string::npos)
        << shown;
    pressed({'e', keyEnter});
    EXPECT_EQ(asked_->draw(40, 100).find("user alice: yes"), std::string::npos);
    failure_ = NSError::errorWithDomain(NSPOSIXErrorDomain, 13);
    pressed({'e', 'e', 'v', 'e', 'r', 'y', 'o', 'n', 'e', keyEnter});
    EXPECT_NE(asked_->draw(40, 100).find("\nPermission denied\n"), std::string::npos);
}

TEST_F(ScreenOfAList, ShowsWhatChangesBeforeItSaves) {
    changes_ = {"- user alice  Allow  Read", "+ user alice  Deny  Read"};
    EXPECT_EQ(pressed({'s'}), Pressed::goesOn);
    const auto shown = asked_->draw(24, 80);
    EXPECT_NE(shown.find("These changes are saved:"), std::string::npos);
    EXPECT_NE(shown.find("+ user alice  Deny  Read"), std::string::npos);
    EXPECT_EQ(pressed({'x'}), Pressed::goesOn);
    EXPECT_EQ(asked_->draw(24, 80).find("These changes"), std::string::npos);
    EXPECT_EQ(pressed({'s', keyDown, keyEnter}), Pressed::save);
    EXPECT_EQ(pressed({'L', 's'}), Pressed::saveLossily);
    changes_.clear();
    EXPECT_EQ(pressed({'s'}), Pressed::save);
}

/// A file's list as it is stored, with a mask that takes writing from somebody.
class ScreenOfAMaskedList : public testing::Test {
  protected:
    static EntryList entries() {
        PosixAcl acl{4711, 4711, false, {}, {}};
        acl.access.owner = PosixRead | PosixWrite;
        acl.access.owningGroup = PosixRead;
        acl.access.mask = PosixRead;
        acl.access.users = {{4803, PosixRead | PosixWrite}};
        return readFrom(entriesOfPosixAcl(acl), MVAclStorage::posix, storedListsOf(acl));
    }
    std::vector<std::string> drawn(std::size_t rows, std::size_t columns) {
        return linesOf(screen_.draw(rows, columns));
    }

    acltest::World world_;
    AclEditor editor_{entries(), [](Problem&) { return false; }};
    EditScreen screen_{editor_, "notes.txt", Style(false)};
};

TEST_F(ScreenOfAMaskedList, ShowsAboveTheTableWhatItIsAndTheMaskThatLimitsIt) {
    const auto lines = drawn(24, 80);
    EXPECT_EQ(lines[0], "notes.txt");
    EXPECT_EQ(lines[1], "  file, POSIX list; uid 4711 (owner), gid 4711 (owning group)");
    EXPECT_EQ(lines[2], "  The mask r-- holds back rights that are stored; shown is what is left.");
    EXPECT_EQ(lines[3], "");
    EXPECT_EQ(lines[4], "> 1. uid 4711 (owner)  Allow  rw-  Read and Write  This item");
    EXPECT_EQ(lines[5].substr(0, 27), "  2. uid 4803  Allow  r--  ");
}

TEST_F(ScreenOfAMaskedList, WrapsWhatIsAboveTheTableWhereThereIsRoom) {
    const auto lines = drawn(24, 40);
    EXPECT_EQ(lines[1], "  file, POSIX list; uid 4711 (owner),");
    EXPECT_EQ(lines[2], "  gid 4711 (owning group)");
    EXPECT_EQ(lines[3], "  The mask r-- holds back rights that");
    EXPECT_EQ(lines[4], "  are stored; shown is what is left.");
    EXPECT_EQ(lines[6].substr(0, 4), "> 1.");
}

TEST_F(ScreenOfAMaskedList, CutsWhatIsAboveTheTableRatherThanTheTable) {
    auto lines = drawn(12, 40);
    EXPECT_EQ(lines[1], "  file, POSIX list; uid 4711 (owner), g>");
    EXPECT_EQ(lines[2], "  The mask r-- holds back rights that a>");
    EXPECT_EQ(lines[4].substr(0, 4), "> 1.");
    EXPECT_EQ(lines[6].substr(0, 4), "  3.");
    screen_.press('>');
    EXPECT_EQ(drawn(12, 40)[2], "  <ack rights that are stored; shown is>");
    screen_.press('<');
    lines = drawn(10, 40);
    EXPECT_EQ(lines[2].substr(0, 4), "> 1.") << "no room for others above it";
    EXPECT_EQ(lines[4].substr(0, 4), "  3.");
}

TEST_F(ScreenOfAMaskedList, FitsOnATerminalOfAnySize) {
    for (std::size_t rows = 1; rows != 16; ++rows) {
        for (const std::size_t columns : {1, 3, 20, 76}) {
            const auto lines = drawn(rows, columns);
            EXPECT_LE(lines.size(), rows);
            for (const auto& line : lines)
                EXPECT_LE(columnsOf(line), columns) << line;
        }
    }
}

TEST_F(ScreenOfAMaskedList, HasTheLettersFollowAnEdit) {
    const auto second = [&] { return drawn(24, 80)[5].substr(0, 31); };
    screen_.press(keyDown);
    while (editor_.entries()[1]->permissionGroup() != MVAclGroupRead)
        screen_.press('g');
    EXPECT_EQ(second(), "> 2. uid 4803  Allow  r--  Read") << "nobody executes the file";
    screen_.press('g');
    EXPECT_EQ(second(), "> 2. uid 4803  Allow  -w-  Writ");
    screen_.press('u');
    EXPECT_EQ(second(), "> 2. uid 4803  Allow  r--  Read");
    screen_.press('/');
    for (const char c : std::string("execute"))
        screen_.press(static_cast<char32_t>(c));
    for (const auto key : std::initializer_list<char32_t>{keyEnter, ' ', ' '})
        screen_.press(key);
    EXPECT_EQ(drawn(40, 80)[5].substr(0, 31), "  2. uid 4803  Allow  r-x  Read");
    screen_.press('u');
    screen_.press('u');
    EXPECT_EQ(drawn(40, 80)[5].substr(0, 31), "  2. uid 4803  Allow  r--  Read");
    screen_.press('U');
    screen_.press('U');
    EXPECT_EQ(drawn(40, 80)[5].substr(0, 31), "  2. uid 4803  Allow  r-x  Read");
}

TEST_F(Screen, ShowsTheLettersOfAnNfs4List) {
    AclEditor editor(readFrom({MVAclEntry::newEntryForDirectory(false)}, MVAclStorage::nfs4),
                     [](Problem&) { return false; });
    EditScreen screen(editor, "notes.txt", Style(false));
    screen.press('t');
    const auto lines = linesOf(screen.draw(24, 80));
    EXPECT_EQ(lines[1], "  file, NFSv4 list; uid 4711 (owner), gid 4711 (owning group)");
    EXPECT_EQ(lines[3], "> 1. user alice  Deny  rwadxtTnNc  Read and Write  This item");
}

TEST_F(Screen, FitsOnATerminalOfAnySize) {
    screen_.tell("a refusal with many words that go on and on and on and on and on and on");
    for (const std::size_t rows : {1, 4, 6, 9}) {
        for (const std::size_t columns : {1, 20, 76}) {
            const auto lines = drawn(rows, columns);
            EXPECT_LE(lines.size(), rows);
            for (const auto& line : lines)
                EXPECT_LE(columnsOf(line), columns) << line;
        }
    }
}

TEST_F(Screen, ShowsAWholeRefusalUntilTheNextKey) {
    screen_.tell("the file system\n  cannot hold it");
    press({keyResized});
    EXPECT_EQ(drawn(40, 20)[5], "the file system");
    EXPECT_EQ(drawn(40, 20)[6], "cannot hold it");
    press({keyDown});
    EXPECT_EQ(drawn(40, 20)[5], "");
}

TEST_F(Screen, ShowsALongRefusalWholeInThePlaceOfTheList) {
    std::string refusal = "it cannot hold:";
    for (int i = 0; i != 40; ++i)
        refusal += " entry-" + std::to_string(i);
    screen_.tell(refusal);
    auto lines = drawn(12, 40);
    EXPECT_EQ(lines[2].substr(0, 17), "> it cannot hold:");
    EXPECT_EQ(lines[1], "");
    EXPECT_NE(lines[lines.size() - 3].find("lines below"), std::string::npos);
    press({keyBottom});
    lines = drawn(12, 40);
    EXPECT_NE(lines[lines.size() - 4].find("entry-39"), std::string::npos);
    press({' '});
    EXPECT_EQ(drawn(12, 40)[2].substr(0, 4), "> 1.") << "the key did nothing else";
    EXPECT_EQ(drawn(12, 40)[3].substr(0, 4), "  2.");
}

TEST_F(Screen, SavesLossilyWithACapitalL) {
    EXPECT_EQ(press({'L'}), Pressed::saveLossily);
}

}  // namespace
}  // namespace morvane
