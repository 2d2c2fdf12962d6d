// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <gtest/gtest.h>

#include <latch>
#include <thread>
#include <vector>

namespace morvane {
namespace {

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

TEST_F(KDLocalizedStringTest, OfTheNamesThatAPeerHasSentFewAreRemembered) {
    int asked = 0;
    KDLocalizedString::setLookup([&](const std::string& key, const std::string&) {
        ++asked;
        return key;
    });
    constexpr int names = 100000;
    for (int round = 1; round <= 2; ++round) {
        for (int i = 0; i < names; ++i)
            KDLocalizedString::localize("name " + std::to_string(i), "ACL");
    }
    EXPECT_GE(asked, 2 * names - static_cast<int>(KDLocalizedString::mostRemembered));
}

TEST_F(KDLocalizedStringTest, NoLongNameIsRememberedAndNoLongText) {
    int asked = 0;
    std::string told;
    KDLocalizedString::setLookup([&](const std::string&, const std::string&) {
        ++asked;
        return told;
    });
    const auto askedOfTwo = [&](const std::string& key, const std::string& table) {
        const auto before = asked;
        KDLocalizedString::localize(key, table);
        KDLocalizedString::localize(key, table);
        return asked - before;
    };
    const std::string longest(KDLocalizedString::longestRemembered, 'x');
    told = longest;
    EXPECT_EQ(askedOfTwo(longest, longest), 1);
    EXPECT_EQ(askedOfTwo(longest + "y", "ACL"), 2);
    EXPECT_EQ(askedOfTwo("Read", longest + "y"), 2);
    told += "y";
    EXPECT_EQ(askedOfTwo("Read", "ACL"), 2);
}

TEST_F(KDLocalizedStringTest, ANameWithANulIsKeptWhole) {
    const std::string name("Read\0and more", 13);
    EXPECT_EQ(KDLocalizedString::localize(name, "no catalogue"), name);
    EXPECT_EQ(KDLocalizedString::localize(name, ""), name);
    std::string asked;
    KDLocalizedString::setLookup([&](const std::string& key, const std::string&) {
        asked = key;
        return key;
    });
    EXPECT_EQ(KDLocalizedString::localize(name, "ACL"), name);
    EXPECT_EQ(asked, name);
}

TEST_F(KDLocalizedStringTest, AnotherLookUpCountsAtOnce) {
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lesen"); });
    EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lesen");
    KDLocalizedString::setLookup(
        [](const std::string&, const std::string&) { return std::string("Lire"); });
    EXPECT_EQ(KDLocalizedString::localize("Read", "ACL"), "Lire");
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
