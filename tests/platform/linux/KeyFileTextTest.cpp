// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/KeyFileText.h>
#include <gtest/gtest.h>

#include <string>

namespace morvane {
namespace {

TEST(KeyFileText, ANewKeyGoesToTheEndOfItsGroup) {
    EXPECT_EQ(key_file::withValue("[Defaults]\na=1\n\n[B]\n", "k", "v"),
              "[Defaults]\na=1\nk=v\n\n[B]\n");
}

TEST(KeyFileText, AMissingGroupGoesToTheEndOfATextWithoutALastNewline) {
    EXPECT_EQ(key_file::withValue("# x", "k", "v"), "# x\n[Defaults]\nk=v\n");
}

TEST(KeyFileText, TheLastOfTwoAssignmentsCountsAndIsReplaced) {
    const std::string text = "[Defaults]\nk=1\nk=2\n";
    EXPECT_EQ(key_file::parse(text).at("k"), "2");
    EXPECT_EQ(key_file::withValue(text, "k", "3"), "[Defaults]\nk=1\nk=3\n");
}

}  // namespace
}  // namespace morvane
