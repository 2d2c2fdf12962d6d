// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int fuzzFrameReader(const std::uint8_t* data, std::size_t size);

namespace {

TEST(FuzzCorpus, EveryStreamOfFramesIsReadOrRefused) {
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(MORVANE_FRAME_CORPUS)) {
        SCOPED_TRACE(file.path().string());
        std::ifstream in(file.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        EXPECT_EQ(
            fuzzFrameReader(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
        ++count;
    }
    EXPECT_GT(count, 5);
}

}  // namespace
