// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>
#include <gtest/gtest.h>
#include <sys/fsuid.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include "OrdinaryUser.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

std::string grouped(const char* locale, std::int64_t number) {
    ::setenv("LC_ALL", locale, 1);
    return NSNumberFormatter::numberFormatterWithFormat("#,##0.##")->stringFromNumber(number);
}

TEST(NSNumberFormatter, GroupsByTheUsersLocale) {
    EXPECT_EQ(grouped("en_US.UTF-8", 123456789), "123,456,789");
    EXPECT_EQ(grouped("de_DE.UTF-8", 123456789), "123.456.789");
    EXPECT_EQ(grouped("fr_FR.UTF-8", 1234567), "1\u202f234\u202f567");
    EXPECT_EQ(grouped("C.UTF-8", 1234), "1,234");
    EXPECT_EQ(grouped("POSIX", 1234), "1,234");
}

TEST(NSNumberFormatter, TheMostSpecificVariableThatIsSetTellsTheLocale) {
    const auto group = [] {
        return NSNumberFormatter::numberFormatterWithFormat("#,##0.##")->stringFromNumber(1234);
    };
    ::setenv("LANG", "de_DE.UTF-8", 1);
    ::setenv("LC_NUMERIC", "fr_FR.UTF-8", 1);
    ::setenv("LC_ALL", "en_US.UTF-8", 1);
    EXPECT_EQ(group(), "1,234");
    ::setenv("LC_ALL", "", 1);
    EXPECT_EQ(group(), "1\u202f234");
    ::unsetenv("LC_NUMERIC");
    EXPECT_EQ(group(), "1.234");
    ::unsetenv("LANG");
    EXPECT_EQ(group(), "1,234");
}

TEST(NSNumberFormatter, ShowsEveryIntegerExactly) {
    EXPECT_EQ(grouped("en_US.UTF-8", std::numeric_limits<std::int64_t>::max()),
              "9,223,372,036,854,775,807");
    EXPECT_EQ(grouped("en_US.UTF-8", (std::int64_t{1} << 53) + 1), "9,007,199,254,740,993");
    EXPECT_EQ(grouped("en_US.UTF-8", 0), "0");
    EXPECT_EQ(grouped("en_US.UTF-8", 999), "999");
}

TEST(NSNumberFormatter, RefusesAMalformedPattern) {
    EXPECT_THROW(NSNumberFormatter::numberFormatterWithFormat("0#0#.,,.0"), NSException);
}

class NSURLResourceValuesTest : public testing::Test {
  protected:
    NSURL url(const std::string& name) const {
        return NSURL::fileURLWithPath((folder / name).string());
    }
    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

TEST_F(NSURLResourceValuesTest, AFolderIsADirectoryWithAFoldersIcon) {
    std::filesystem::create_directory(folder / "Films");
    const auto values = NSURLResourceValues::valuesForURL(url("Films"));
    EXPECT_EQ(values.localizedName, "Films");
    EXPECT_EQ(values.isDirectory, true);
    ASSERT_TRUE(values.effectiveIcon);
    EXPECT_EQ(values.effectiveIcon->names.front(), "inode-directory");
}

TEST_F(NSURLResourceValuesTest, AFileIsNoDirectory) {
    std::ofstream(folder / "a.txt") << "x";
    const auto values = NSURLResourceValues::valuesForURL(url("a.txt"));
    EXPECT_EQ(values.localizedName, "a.txt");
    EXPECT_EQ(values.isDirectory, false);
    ASSERT_TRUE(values.effectiveIcon);
    EXPECT_FALSE(values.effectiveIcon->names.empty());
}

TEST_F(NSURLResourceValuesTest, ALinkToAFolderIsNoDirectory) {
    std::filesystem::create_directory_symlink("/", folder / "link");
    EXPECT_EQ(NSURLResourceValues::valuesForURL(url("link")).isDirectory, false);
}

TEST_F(NSURLResourceValuesTest, WhatMayNotBeLookedAtIsNeitherADirectoryNorNone) {
    const auto hidden = folder / "hidden";
    std::filesystem::create_directories(hidden / "sub");
    std::filesystem::permissions(hidden, std::filesystem::perms::none);
    // Of this thread only, and without root's powers over files.
    const auto former = ::setfsuid(ordinaryUser);
    const auto isDirectory =
        NSURLResourceValues::valuesForURL(NSURL::fileURLWithPath((hidden / "sub").string()))
            .isDirectory;
    ::setfsuid(static_cast<uid_t>(former));
    EXPECT_EQ(isDirectory, std::nullopt);
}

TEST_F(NSURLResourceValuesTest, ANameThatIsNotUtf8IsShownAsUtf8) {
    const std::string name = "caf\xe9";
    std::ofstream(folder / name) << "x";
    const auto values = NSURLResourceValues::valuesForURL(url(name));
    ASSERT_TRUE(values.localizedName);
    EXPECT_TRUE(values.localizedName->starts_with("caf\uFFFD")) << *values.localizedName;
}

TEST_F(NSURLResourceValuesTest, WhatIsNotThereOrNoFileHasNoValues) {
    EXPECT_EQ(NSURLResourceValues::valuesForURL(url("none")), NSURLResourceValues());
    EXPECT_EQ(NSURLResourceValues::valuesForURL(*NSURL::URLWithString("https://example.org/")),
              NSURLResourceValues());
}

}  // namespace
}  // namespace morvane
