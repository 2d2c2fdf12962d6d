// SPDX-License-Identifier: MIT
#include "DidYouMean.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include "Text.h"

namespace morvane {

namespace {

/// How many letters must be added, removed, replaced or swapped with the next one to make one word
/// of the other.
std::size_t editDistance(std::string_view one, std::string_view other) {
    // For each beginning of `other`: how far it is from the beginning of `one` so far; `before`,
    // from that without its last letter.
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    auto before = row;
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::vector<std::size_t> next{i + 1};
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = row[j] + (one[i] == other[j] ? 0 : 1);
            next.push_back(std::min({replaced, row[j + 1] + 1, next[j] + 1}));
            if (i > 0 && j > 0 && one[i] == other[j - 1] && one[i - 1] == other[j])
                next.back() = std::min(next.back(), before[j - 1] + 1);
        }
        before = std::exchange(row, std::move(next));
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
    const auto letters = word.size() - std::min(word.find_first_not_of('-'), word.size());
    const bool isLike = editDistance(word, nearest) <= (letters < 5 ? 1U : 2U);
    // TRANSLATORS: %1 is "there is no command 'sise'".
    return isLike ? say("%1; did you mean '%2'?", reason, nearest) : reason;
}

}  // namespace morvane
