#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <gtest/gtest.h>

namespace morvane {
namespace {

using namespace std::chrono_literals;

const GrantAges::Time start{1h};

TEST(GrantAges, AGrantIsGoodForFortyFiveSecondsFromItsFirstSight) {
    GrantAges ages;
    EXPECT_FALSE(ages.isExpired("a", start));
    EXPECT_FALSE(ages.isExpired("a", start + 45s));
    EXPECT_TRUE(ages.isExpired("a", start + 45s + 1ms));
}

TEST(GrantAges, UsingAGrantDoesNotProlongIt) {
    GrantAges ages;
    for (auto after = 0s; after <= 45s; after += 1s)
        EXPECT_FALSE(ages.isExpired("a", start + after));
    EXPECT_TRUE(ages.isExpired("a", start + 46s));
}

TEST(GrantAges, AnExpiredGrantStaysExpiredForAsLongAsItIsKept) {
    GrantAges ages;
    ages.isExpired("a", start);
    for (auto after = 46s; after <= 300s; after += 1s)
        EXPECT_TRUE(ages.isExpired("a", start + after));
}

TEST(GrantAges, EachGrantHasItsOwnAge) {
    GrantAges ages;
    ages.isExpired("a", start);
    EXPECT_FALSE(ages.isExpired("b", start + 40s));
    EXPECT_TRUE(ages.isExpired("a", start + 50s));
    EXPECT_FALSE(ages.isExpired("b", start + 50s));
}

TEST(GrantAges, AnAnswerThatRestsOnNoGrantNeverExpires) {
    GrantAges ages;
    EXPECT_FALSE(ages.isExpired("", start));
    EXPECT_FALSE(ages.isExpired("", start + 1h));
    EXPECT_TRUE(ages.takeAll().empty());
}

TEST(GrantAges, GrantsThatNobodyKeepsAnyMoreAreForgotten) {
    GrantAges ages;
    ages.isExpired("a", start);
    ages.isExpired("b", start + 11min);
    EXPECT_EQ(ages.takeAll(), (std::map<std::string, GrantAges::Time>{{"b", start + 11min}}));
}

TEST(GrantAges, AForgottenGrantIsNewAgain) {
    GrantAges ages;
    ages.isExpired("a", start);
    ages.forget("a");
    EXPECT_FALSE(ages.isExpired("a", start + 50s));
}

}  // namespace
}  // namespace morvane
