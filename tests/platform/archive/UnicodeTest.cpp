// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <gtest/gtest.h>

namespace morvane {
namespace {

TEST(Unicode, TextThatIsUtf8StaysAsItIs) {
    for (const char* text : {"", "plain", "caf\u00e9", "\u20ac\uffff", "\U00010000\U0010ffff"})
        EXPECT_EQ(validUtf8(text), text);
}

TEST(Unicode, EachByteThatIsNoPartOfUtf8IsReplaced) {
    EXPECT_EQ(validUtf8("caf\xe9"), "caf\ufffd");
    EXPECT_EQ(validUtf8("\xe9 au lait"), "\ufffd au lait");
    // Cut short: what was left of it is taken byte by byte.
    EXPECT_EQ(validUtf8("\xe2\x82"), "\ufffd\ufffd");
    EXPECT_EQ(validUtf8("\xe2\x82x\xf0\x9f\x98"), "\ufffd\ufffdx\ufffd\ufffd\ufffd");
    // Longer than it need be, a surrogate, beyond the last one, and no beginning of anything.
    EXPECT_EQ(validUtf8("\xc0\xaf"), "\ufffd\ufffd");
    EXPECT_EQ(validUtf8("\xed\xa0\x80"), "\ufffd\ufffd\ufffd");
    EXPECT_EQ(validUtf8("\xf4\x90\x80\x80"), "\ufffd\ufffd\ufffd\ufffd");
    EXPECT_EQ(validUtf8("\x80\xff\xfe"), "\ufffd\ufffd\ufffd");
}

}  // namespace
}  // namespace morvane
