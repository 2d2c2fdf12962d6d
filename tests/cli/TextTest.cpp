// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "Text.h"

namespace morvane {
namespace {

TEST(EscapedText, LeavesOrdinaryTextAlone) {
    EXPECT_EQ(escaped("My Files \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"),
              "My Files \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(EscapedText, ShowsControlCharactersAsBytes) {
    EXPECT_EQ(escaped("a\x1b[31m\n\t\x7f"), "a\\x1b[31m\\x0a\\x09\\x7f");
}

TEST(EscapedText, ShowsControlCharactersBeyondAsciiAsBytes) {
    EXPECT_EQ(escaped("\xc2\x9b"), "\\xc2\\x9b");
}

TEST(EscapedText, ShowsBytesThatAreNotUtf8) {
    EXPECT_EQ(escaped("\xff"
                      "a\xc3"),
              "\\xffa\\xc3");
}

TEST(EscapedText, TakesOverlongFormsAndSurrogatesForStrayBytes) {
    EXPECT_EQ(escaped("\xc0\x9b"), "\\xc0\\x9b");
    EXPECT_EQ(escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80");
}

TEST(EscapedText, ShowsWhatReversesTheWriting) {
    EXPECT_EQ(escaped("a\xe2\x80\xae"
                      "b"),
              "a\\u{202e}b");
}

TEST(EscapedText, DoublesTheBackslashSoThatNoTwoNamesLookTheSame) {
    EXPECT_EQ(escaped("\\x1b"), "\\\\x1b");
}

TEST(PaddedText, CountsCharactersAndNotBytes) {
    EXPECT_EQ(padded("\xc3\xa4", 3), "\xc3\xa4  ");
    EXPECT_EQ(padded("long", 2), "long");
}

TEST(Style, WritesNoEscapeSequencesWithoutColours) {
    EXPECT_EQ(Style(false).bad("Deny"), "Deny");
}

TEST(Style, EndsEachColourWithAReset) {
    EXPECT_EQ(Style(true).bad("Deny"), "\x1b[31mDeny\x1b[0m");
}

}  // namespace
}  // namespace morvane
