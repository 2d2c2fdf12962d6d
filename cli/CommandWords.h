// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What the texts that are made of the table of commands have in common.
namespace morvane {

/// `text` with each `what` in it replaced.
inline std::string replaced(std::string text, std::string_view what, std::string_view by) {
    for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

inline std::string joined(const std::vector<std::string_view>& words, std::string_view between) {
    std::string text;
    for (const auto& word : words)
        text += (text.empty() ? "" : std::string(between)) + std::string(word);
    return text;
}

}  // namespace morvane
