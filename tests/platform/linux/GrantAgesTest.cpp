// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "TemporaryFolder.h"

namespace morvane {
namespace {

using namespace std::chrono_literals;

const GrantAges::Time start{1h};

PolicyGrant grant(const char* id, const char* authority = ":1.7") {
    return {authority, id};
}

TEST(GrantAges, AGrantIsGoodForFortyFiveSecondsFromItsFirstSight) {
    GrantAges ages;
    EXPECT_FALSE(ages.isExpired(grant("a"), start));
    EXPECT_FALSE(ages.isExpired(grant("a"), start + 45s));
    EXPECT_TRUE(ages.isExpired(grant("a"), start + 45s + 1ms));
}

TEST(GrantAges, UsingAGrantDoesNotProlongIt) {
    GrantAges ages;
    for (auto after = 0s; after <= 45s; after += 1s)
        EXPECT_FALSE(ages.isExpired(grant("a"), start + after));
    EXPECT_TRUE(ages.isExpired(grant("a"), start + 46s));
}

TEST(GrantAges, AnExpiredGrantStaysExpiredForAsLongAsItIsKept) {
    GrantAges ages;
    ages.isExpired(grant("a"), start);
    for (auto after = 46s; after <= 300s; after += 1s)
        EXPECT_TRUE(ages.isExpired(grant("a"), start + after));
}

TEST(GrantAges, EachGrantHasItsOwnAge) {
    GrantAges ages;
    ages.isExpired(grant("a"), start);
    EXPECT_FALSE(ages.isExpired(grant("b"), start + 40s));
    EXPECT_TRUE(ages.isExpired(grant("a"), start + 50s));
    EXPECT_FALSE(ages.isExpired(grant("b"), start + 50s));
}

TEST(GrantAges, AnAnswerThatRestsOnNoGrantNeverExpires) {
    GrantAges ages;
    EXPECT_FALSE(ages.isExpired(grant(""), start));
    EXPECT_FALSE(ages.isExpired(grant(""), start + 1h));
}

TEST(GrantAges, GrantsThatNobodyKeepsAnyMoreAreForgotten) {
    GrantAges ages;
    ages.isExpired(grant("a"), start);
    EXPECT_TRUE(ages.isExpired(grant("a"), start + 9min));
    ages.isExpired(grant("b"), start + 11min);
    EXPECT_FALSE(ages.isExpired(grant("a"), start + 11min));
    EXPECT_TRUE(ages.isExpired(grant("b"), start + 12min));
}

TEST(GrantAges, AForgottenGrantIsNewAgain) {
    GrantAges ages;
    ages.isExpired(grant("a"), start);
    ages.forget(grant("a"));
    EXPECT_FALSE(ages.isExpired(grant("a"), start + 50s));
}

TEST(GrantAges, AnAuthorityThatHasStartedAnewGrantsAnew) {
    GrantAges ages;
    ages.isExpired(grant("a"), start);
    EXPECT_FALSE(ages.isExpired(grant("a", ":1.8"), start + 50s));
}

class GrantAgesInAFile : public testing::Test {
  protected:
    const TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_.path() / "grants";
};

TEST_F(GrantAgesInAFile, OutlastTheProcess) {
    GrantAges(file_, start).isExpired(grant("a"), start);
    GrantAges(file_, start).isExpired(grant("b"), start + 20s);
    GrantAges ages(file_, start + 50s);
    EXPECT_TRUE(ages.isExpired(grant("a"), start + 50s));
    EXPECT_FALSE(ages.isExpired(grant("b"), start + 50s));
}

TEST_F(GrantAgesInAFile, AreWrittenLaterWhereTheyCouldNotBeWrittenAtFirst) {
    const auto folder = file_.parent_path();
    GrantAges ages(file_, start);
    std::filesystem::remove(folder);
    ages.isExpired(grant("a"), start);
    std::filesystem::create_directory(folder);
    ages.isExpired(grant("a"), start + 1s);
    EXPECT_TRUE(GrantAges(file_, start + 46s).isExpired(grant("a"), start + 46s));
}

TEST_F(GrantAgesInAFile, AreDroppedWhereTheyCannotBeRead) {
    std::ofstream(file_) << ":1.7 a 3550000000000\n:1.7 b";
    GrantAges ages(file_, start);
    EXPECT_TRUE(ages.isExpired(grant("a"), start));
    EXPECT_FALSE(ages.isExpired(grant("b"), start));
}

}  // namespace
}  // namespace morvane
