// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int fuzzEntryArray(const std::uint8_t* data, std::size_t size);

namespace {

TEST(EntryArrayCorpus, EveryArrayIsReadEditedAndWrittenAgainOrRefused) {
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(
             std::filesystem::path(MORVANE_FUZZ_CORPUS) / "entry_array")) {
        SCOPED_TRACE(file.path().string());
        std::ifstream in(file.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        EXPECT_EQ(fuzzEntryArray(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()),
                  0);
        ++count;
    }
    EXPECT_GT(count, 10);
}

TEST(EntryArrayCorpus, SoAreArraysMadeAtRandom) {
    std::mt19937 random(20240229);
    for (int round = 0; round < 500; ++round) {
        std::vector<std::uint8_t> recipe(random() % 400);
        for (auto& byte : recipe)
            byte = static_cast<std::uint8_t>(random());
        if (!recipe.empty())
            recipe[0] = 0;
        EXPECT_EQ(fuzzEntryArray(recipe.data(), recipe.size()), 0);
    }
}

}  // namespace
