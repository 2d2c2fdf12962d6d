// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "EditScreen.h"
#include "acl/AclTestSupport.h"

namespace morvane {
namespace {

using acltest::box;
using acltest::flatTree;
using Pressed = EditScreen::Result;

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
        std::vector<std::string> lines{""};
        for (const char c : screen_.draw(rows, columns)) {
            if (c == '\n')
                lines.emplace_back();
            else
                lines.back() += c;
        }
        return lines;
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
    EXPECT_EQ(lines[2], "> 1. user alice (owner)  Allow  Read and Write  This item");
    EXPECT_EQ(lines[3], "  2. user alice  Allow  Read and Write  This item");
}

TEST_F(Screen, OpensAnEntryToItsBoxesAndClosesIt) {
    press({keyDown, keyRight, keyDown});
    auto lines = drawn();
    EXPECT_EQ(lines[4], ">     [x] Read");
    EXPECT_EQ(lines[5], "          [x] Read Data");
    press({keyLeft});
    lines = drawn();
    EXPECT_EQ(lines[3], "> 2. user alice  Allow  Read and Write  This item");
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
    EXPECT_EQ(lines[3], "  2. user alice  Allow  Custom (part of Read, Write)  This item");
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
    EXPECT_EQ(drawn()[4], "> 3. group staff  Allow  Read and Write  This item");
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
    // Title, blank, three lines, blank, message, two of help.
    EXPECT_EQ(lines[4], ">         [x] Read Extended Attributes");
    EXPECT_EQ(lines[5], "");
}

TEST_F(Screen, CutsWhatIsWiderThanTheTerminal) {
    EXPECT_EQ(drawn(40, 12)[2], "> 1. user al");
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

TEST_F(Screen, SavesLossilyWithL) {
    EXPECT_EQ(press({'l'}), Pressed::saveLossily);
}

}  // namespace
}  // namespace morvane
