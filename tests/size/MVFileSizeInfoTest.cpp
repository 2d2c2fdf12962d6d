// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "size/SizeFixture.h"

namespace morvane {
namespace {

using MVFileSizeInfoTest = SizeFixture;

TEST_F(MVFileSizeInfoTest, ShowsANegativeSizeAsUnknownWhateverTheFlag) {
    EXPECT_EQ(text(-1, true), "--");
    EXPECT_EQ(text(-1, false), "--");
    EXPECT_EQ(text(std::numeric_limits<std::int64_t>::min()), "--");
}

struct Row {
    std::int64_t size;
    bool allowBytes;
    const char* text;
};

class DecimalRows : public SizeFixture, public testing::WithParamInterface<Row> {};
TEST_P(DecimalRows, ShowsTheSizeInDecimalUnits) {
    EXPECT_EQ(text(GetParam().size, GetParam().allowBytes), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Worked, DecimalRows,
    testing::Values(Row{-1, true, "--"}, Row{0, true, "0 bytes"}, Row{0, false, "0 KB"},
                    Row{1, true, "1 bytes"}, Row{500, false, "0.5 KB"}, Row{999, true, "999 bytes"},
                    Row{999, false, "1 KB"}, Row{1000, true, "1 KB"}, Row{1000, false, "1 KB"},
                    Row{1049, true, "1 KB"}, Row{1100, true, "1.1 KB"}, Row{1960, true, "2 KB"},
                    Row{999960, true, "1000 KB"}, Row{123456789, true, "123.5 MB"},
                    Row{5000000000000000, true, "5000 TB"}, Row{4100, true, "4 KB"},
                    Row{4101, true, "4.1 KB"}, Row{1250, true, "1.2 KB"}, Row{1750, true, "1.8 KB"},
                    Row{999999, true, "1000 KB"}, Row{1000000, true, "1 MB"},
                    Row{999999999, true, "1000 MB"}, Row{1000000000, true, "1 GB"},
                    Row{999999999999, true, "1000 GB"}, Row{1000000000000, true, "1 TB"},
                    Row{10000000, true, "10 MB"}, Row{100960000, true, "101 MB"},
                    Row{std::numeric_limits<std::int64_t>::max(), true, "9223372 TB"}));

class Base2Rows : public SizeFixture, public testing::WithParamInterface<Row> {};
TEST_P(Base2Rows, ShowsTheSizeInUnitsOf1024) {
    useBase2(true);
    EXPECT_EQ(text(GetParam().size, GetParam().allowBytes), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Worked, Base2Rows,
    testing::Values(Row{1000, true, "1000 bytes"}, Row{1023, true, "1023 bytes"},
                    Row{1024, true, "1 KB"}, Row{1536, true, "1.5 KB"}, Row{1280, true, "1.2 KB"},
                    Row{1048575, true, "1024 KB"}, Row{1048576, true, "1 MB"},
                    Row{1073741823, true, "1024 MB"}, Row{1073741824, true, "1 GB"},
                    Row{1099511627775, true, "1024 GB"}, Row{1099511627776, true, "1 TB"},
                    Row{std::numeric_limits<std::int64_t>::max(), true, "8388608 TB"}));

TEST_F(MVFileSizeInfoTest, ReplacingALabelChangesTheTextsOfItsRangeAtOnce) {
    const auto info = MVFileSizeInfo::sharedFileSizeInfo();
    info->setByteUnits("B");
    info->setKilobyteUnits("kilo");
    info->setMegabyteUnits("mega");
    info->setGigabyteUnits("giga");
    info->setTerabyteUnits("tera");
    EXPECT_EQ(text(5), "5 B");
    EXPECT_EQ(text(5000), "5 kilo");
    EXPECT_EQ(text(5000000), "5 mega");
    EXPECT_EQ(text(5000000000), "5 giga");
    EXPECT_EQ(text(5000000000000), "5 tera");
    info->setByteUnits("bytes");
    info->setKilobyteUnits("KB");
    info->setMegabyteUnits("MB");
    info->setGigabyteUnits("GB");
    info->setTerabyteUnits("TB");
}

TEST_F(MVFileSizeInfoTest, TheLabelsBeginAsEnglishUnits) {
    const auto info = MVFileSizeInfo::sharedFileSizeInfo();
    EXPECT_EQ(info->byteUnits(), "bytes");
    EXPECT_EQ(info->kilobyteUnits(), "KB");
    EXPECT_EQ(info->megabyteUnits(), "MB");
    EXPECT_EQ(info->gigabyteUnits(), "GB");
    EXPECT_EQ(info->terabyteUnits(), "TB");
}

TEST_F(MVFileSizeInfoTest, InitHandsBackTheSharedInstance) {
    EXPECT_EQ(MVFileSizeInfo::init(), MVFileSizeInfo::sharedFileSizeInfo());
}

TEST_F(MVFileSizeInfoTest, EachSetOfTheDefaultPostsOnceAlsoWithAnEqualValue) {
    int posts = 0;
    NSObject* poster = nullptr;
    std::thread::id thread;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification& notification) {
            ++posts;
            poster = notification.object;
            thread = std::this_thread::get_id();
        });
    useBase2(true);
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(text(1024), "1 KB");
    useBase2(true);
    EXPECT_EQ(posts, 2);
    useBase2(false);
    EXPECT_EQ(posts, 3);
    EXPECT_EQ(text(1000), "1 KB");
    EXPECT_EQ(poster, MVFileSizeInfo::sharedFileSizeInfo().get());
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(MVFileSizeInfoTest, AnEditOfTheStorePostsOnceAndAnUnchangedStoreNever) {
    int posts = 0;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification&) { ++posts; });
    store->values["useBase2MathForSizes"] = "true";
    store->tellOfChange();
    store->tellOfChange();
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(text(1536), "1.5 KB");
}

TEST_F(MVFileSizeInfoTest, UpdatingTheConstantsPostsAlsoWithoutAChange) {
    int posts = 0;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification&) { ++posts; });
    MVFileSizeInfo::sharedFileSizeInfo()->updateConstants();
    EXPECT_EQ(posts, 1);
}

TEST_F(MVFileSizeInfoTest, TheChangeCallbackUpdatesWhateverChanged) {
    int posts = 0;
    const auto observation = NSNotificationCenter::defaultCenter().addObserver(
        MVFileSizeBaseChanged, [&](const NSNotification&) { ++posts; });
    const NSKeyPath unrelated{"unrelated"};
    NSObject object;
    MVFileSizeInfo::sharedFileSizeInfo()->observeValueForKeyPath(unrelated, object);
    EXPECT_EQ(posts, 1);
}

TEST_F(MVFileSizeInfoTest, DoesNotDependOnTheCLocale) {
    ASSERT_EQ(setenv("LOCPATH", LOCALE_FOLDER, 1), 0);
    ASSERT_TRUE(std::setlocale(LC_ALL, "de_DE.UTF-8"));
    char written[8];
    std::snprintf(written, sizeof written, "%.1f", 1.1);
    ASSERT_STREQ(written, "1,1");
    EXPECT_EQ(text(1100), "1.1 KB");
    EXPECT_EQ(text(5000000000000000), "5000 TB");
    std::setlocale(LC_ALL, "C");
    unsetenv("LOCPATH");
}

TEST_F(MVFileSizeInfoTest, FormatsWhileTheBaseChangesOnAnotherThread) {
    std::atomic<bool> stop = false;
    std::thread changer([&] {
        for (int i = 0; i < 2000; ++i)
            useBase2(i % 2 == 0);
        stop = true;
    });
    while (!stop)
        EXPECT_FALSE(text(123456789).empty());
    changer.join();
    EXPECT_EQ(text(123456789), "123.5 MB");
}

TEST_F(MVFileSizeInfoTest, AgreesWithAnIndependentFormatterOnRandomSizesInBothBasesWithBothFlags) {
    std::mt19937_64 random(20240229);
    std::vector<std::int64_t> sizes;
    for (int i = 0; i < RANDOM_SIZES; ++i)
        sizes.push_back(static_cast<std::int64_t>(random() >> (1 + random() % 63)));
    for (const std::int64_t unit : {1000, 1024}) {
        for (std::int64_t power = unit; power <= unit * unit * unit * unit; power *= unit) {
            for (std::int64_t tenth = 1; tenth < 400; ++tenth) {
                for (const int off : {-1, 0, 1})
                    sizes.push_back(power / 20 * tenth + off);
            }
        }
    }
    const std::string path = testing::TempDir() + "size_text." + std::to_string(::getpid());
    {
        std::ofstream file(path);
        for (const bool base2 : {false, true}) {
            useBase2(base2);
            for (const auto size : sizes) {
                for (const bool allowBytes : {false, true}) {
                    file << base2 << ' ' << allowBytes << ' ' << size << ' '
                         << text(size, allowBytes) << '\n';
                }
            }
        }
    }
    const auto command =
        "python3 '" SIZE_TEXT_CHECKER "' '" + path + "' " + std::to_string(4 * RANDOM_SIZES);
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::remove(path.c_str());
}

}  // namespace
}  // namespace morvane
