#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

namespace morvane {
namespace {

/// Each test has a table of its own: gettext's texts are remembered for the life of the process.
class KDLocalizedStringTest : public testing::Test {
  protected:
    ~KDLocalizedStringTest() override { KDLocalizedString::setLookup({}); }
};

TEST_F(KDLocalizedStringTest, AKeyWithoutACatalogueIsItsOwnText) {
    EXPECT_EQ(KDLocalizedString::localize("Read", "no catalogue"), "Read");
    EXPECT_EQ(KDLocalizedString::localize("\xff not UTF-8", "no catalogue"), "\xff not UTF-8");
}

TEST_F(KDLocalizedStringTest, AnEmptyKeyIsTheEmptyTextAndIsNotLookedUp) {
    int asked = 0;
    KDLocalizedString::setLookup([&](const std::string&, const std::string&) {
        ++asked;
        return std::string("header");
    });
    EXPECT_EQ(KDLocalizedString::localize("", "ACL"), "");
    EXPECT_EQ(asked, 0);
}

TEST_F(KDLocalizedStringTest, TheHostsLookUpIsAskedOncePerKeyAndTable) {
    std::vector<std::string> asked;
    KDLocalizedString::setLookup([&](const std::string& key, const std::string& table) {
        asked.push_back(table + "/" + key);
        return key + " in " + table;
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Read in ACL");
        EXPECT_EQ(KDLocalizedString::localize("Read", "Menu"), "Read in Menu");
    }
    EXPECT_EQ(asked, (std::vector<std::string>{"ACL/Read", "Menu/Read"}));
}

TEST_F(KDLocalizedStringTest, ManyKeysWithTheSameBeginningsAreToldApart) {
    KDLocalizedString::setLookup(
        [](const std::string& key, const std::string&) { return "<" + key + ">"; });
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 2000; ++i) {
            const auto key = "Permission " + std::to_string(i) + " of many";
            EXPECT_EQ(KDLocalizedString::localize(key, "ACL"), "<" + key + ">");
        }
    }
}

TEST_F(KDLocalizedStringTest, AnotherLookUpCountsAtOnceAndFormerTextsStayValid) {
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lesen"); });
    const auto& former = KDLocalizedString::localize("Read", "ACL");
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lire"); });
    EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lire");
    EXPECT_EQ(former, "Lesen");
    KDLocalizedString::setLookup({});
    EXPECT_EQ(KDLocalizedString::localize("Read", "no catalogue"), "Read");
}

TEST_F(KDLocalizedStringTest, AnotherLookUpIsSeenByThreadsThatHaveLookedUpBefore) {
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lesen"); });
    constexpr int count = 4;
    std::latch looked(count);
    std::latch changed(1);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lesen");
            EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lesen");
            looked.count_down();
            changed.wait();
            EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lire");
        });
    }
    looked.wait();
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lire"); });
    changed.count_down();
    for (auto& thread : threads)
        thread.join();
}

TEST_F(KDLocalizedStringTest, WhatAReplacedLookUpStillTellsIsNotRemembered) {
    std::latch asked(1);
    std::latch replaced(1);
    KDLocalizedString::setLookup([&](const std::string&, const std::string&) {
        asked.count_down();
        replaced.wait();
        return std::string("Lesen");
    });
    std::thread slow([] { EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lesen"); });
    asked.wait();
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lire"); });
    replaced.count_down();
    slow.join();
    EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lire");
}

TEST_F(KDLocalizedStringTest, ALookUpMayLookUpAnotherText) {
    KDLocalizedString::setLookup([](const std::string& key, const std::string& table) {
        return key == "Outer" ? "(" + KDLocalizedString::localize("Inner", table) + ")" : key;
    });
    EXPECT_EQ(KDLocalizedString::localize("Outer", "ACL"), "(Inner)");
}

TEST_F(KDLocalizedStringTest, TextsAreLookedUpWhileAnotherThreadChangesTheLookUp) {
    std::thread reader([] {
        for (int i = 0; i < 5000; ++i)
            EXPECT_TRUE(KDLocalizedString::localize("Key" + std::to_string(i % 7), "ACL")
                            .starts_with("Key"));
    });
    for (int i = 0; i < 100; ++i) {
        KDLocalizedString::setLookup(
            [i](const std::string& key, const std::string&) { return key + std::to_string(i); });
    }
    reader.join();
}

}  // namespace
}  // namespace morvane
