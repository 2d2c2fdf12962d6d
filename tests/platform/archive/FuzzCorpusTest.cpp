// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int fuzzPropertyList(const std::uint8_t* data, std::size_t size);
extern "C" int fuzzKeyedUnarchiver(const std::uint8_t* data, std::size_t size);
extern "C" int fuzzTwoReaders(const std::uint8_t* data, std::size_t size);

namespace {

/// Runs every file of a corpus through its fuzz target; the number of files.
int replay(const char* name, int (*target)(const std::uint8_t*, std::size_t)) {
    int count = 0;
    const auto folder = std::filesystem::path(MORVANE_FUZZ_CORPUS) / name;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(file.path().string());
        std::ifstream in(file.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        EXPECT_EQ(target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
        ++count;
    }
    return count;
}

TEST(FuzzCorpus, EveryPropertyListIsReadOrRefused) {
    EXPECT_GT(replay("property_list", fuzzPropertyList), 5);
}

TEST(FuzzCorpus, EveryKeyedArchiveIsReadOrRefused) {
    EXPECT_GT(replay("keyed_unarchiver", fuzzKeyedUnarchiver), 5);
}

TEST(FuzzCorpus, BothReadersMakeTheSameOfEveryArchive) {
    EXPECT_GT(replay("two_readers", fuzzTwoReaders), 5);
    EXPECT_GT(replay("keyed_unarchiver", fuzzTwoReaders), 5);
}

}  // namespace
