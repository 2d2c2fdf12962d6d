// SPDX-License-Identifier: MIT
#include "DidYouMean.h"

#include <algorithm>
#include <numeric>

#include "Text.h"

namespace morvane {

namespace {

/// How many letters must be added, removed or replaced to make one word of the other.
std::size_t editDistance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string withQuestion(const std::string& reason, std::string_view word,
                         const std::vector<std::string_view>& names) {
    constexpr std::size_t longest = 32;
    if (word.size() > longest || names.empty())
        return reason;
    const auto nearest = *std::min_element(names.begin(), names.end(), [&](auto a, auto b) {
        return editDistance(word, a) < editDistance(word, b);
    });
    const bool isLike = editDistance(word, nearest) <= (word.size() < 4 ? 1U : 2U);
    // TRANSLATORS: %1 is "there is no command 'sise'".
    return isLike ? say("%1; did you mean '%2'?", reason, nearest) : reason;
}

}  // namespace morvane
