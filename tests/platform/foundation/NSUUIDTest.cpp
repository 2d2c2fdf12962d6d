// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSUUID.h>
#include <gtest/gtest.h>

namespace morvane {
namespace {

using namespace std::string_view_literals;

constexpr NSUUID::Bytes someBytes = {0x6b, 0xa7, 0xb8, 0x10, 0x9d, 0xad, 0x11, 0xd1,
                                     0x80, 0xb4, 0x00, 0xc0, 0x4f, 0xd4, 0x30, 0xc8};

TEST(NSUUID, WritesItsBytesInLowerCase) {
    EXPECT_EQ(NSUUID(someBytes).UUIDString(), "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(NSUUID(NSUUID::Bytes{}).UUIDString(), "00000000-0000-0000-0000-000000000000");
}

TEST(NSUUID, ReadsDigitsOfEitherCase) {
    for (const auto text :
         {"6ba7b810-9dad-11d1-80b4-00c04fd430c8", "6BA7B810-9DAD-11D1-80B4-00C04FD430C8",
          "6bA7b810-9DaD-11d1-80B4-00C04fd430c8"}) {
        const auto uuid = NSUUID::initWithUUIDString(text);
        ASSERT_TRUE(uuid) << text;
        EXPECT_EQ(uuid->bytes(), someBytes) << text;
    }
}

TEST(NSUUID, RefusesAnyOtherForm) {
    for (const auto text : {
             ""sv,
             "6ba7b810-9dad-11d1-80b4-00c04fd430c"sv,     // a digit too few
             "6ba7b810-9dad-11d1-80b4-00c04fd430c80"sv,   // a digit too many
             "6ba7b8109dad11d180b400c04fd430c8"sv,        // no dashes
             "6ba7b81-09dad-11d1-80b4-00c04fd430c8"sv,    // a dash elsewhere
             "6ba7b810 9dad 11d1 80b4 00c04fd430c8"sv,    // blanks for dashes
             "6ba7b810-9dad-11d1-80b4-00c04fd430cg"sv,    // no digit
             "6ba7b810-9dad-11d1-80b4-00c04fd430-8"sv,    // a dash for a digit
             " 6ba7b810-9dad-11d1-80b4-00c04fd430c"sv,    // a blank before
             "6ba7b810-9dad-11d1-80b4-00c04fd430c\0"sv,   // NUL for a digit
             "6ba7b810-9dad-11d1-80b4-00c04fd430c8\n"sv,  // a line's end
             "{6ba7b810-9dad-11d1-80b4-00c04fd430c8}"sv,  // braces
             "+ba7b810-9dad-11d1-80b4-00c04fd430c8"sv,    // a sign
         })
        EXPECT_EQ(NSUUID::initWithUUIDString(text), std::nullopt) << text;
}

TEST(NSUUID, IsComparedByItsBytes) {
    auto later = someBytes;
    ++later[15];
    EXPECT_EQ(NSUUID(someBytes), NSUUID(someBytes));
    EXPECT_NE(NSUUID(someBytes), NSUUID(later));
    EXPECT_LT(NSUUID(someBytes), NSUUID(later));
}

}  // namespace
}  // namespace morvane
