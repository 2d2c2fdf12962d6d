// SPDX-License-Identifier: MIT
#include "PlainWords.h"

#include <algorithm>
#include <string_view>

#include "CommandTable.h"

namespace morvane {

namespace {

/// A word that begins with the mark itself is marked as well.
constexpr char plainMark = '\x01';

std::string marked(std::string_view word) {
    return plainMark + std::string(word);
}

bool mayLackItsWord(std::string_view option) {
    for (const auto& command : commandTable()) {
        for (const auto& row : command.options) {
            if (row.name == option && row.wordMayBeMissing())
                return true;
        }
    }
    return false;
}

}  // namespace

std::vector<std::string> wordsForParser(int argc, const char* const* argv) {
    std::vector<std::string> words;
    bool isBehindDashes = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--" && !isBehindDashes) {
            isBehindDashes = true;
            // The option before them must not take a word from behind them.
            if (mayLackItsWord(argv[i - 1]))
                words.emplace_back("--");
            continue;
        }
        const auto value = word.starts_with("--") ? word.find('=') : word.npos;
        // "++" would end a command.
        if (isBehindDashes || word == "++" || word.starts_with('[') || word.starts_with(plainMark))
            words.push_back(marked(word));
        else if (value != word.npos)
            words.push_back(std::string(word.substr(0, value + 1)) +
                            marked(word.substr(value + 1)));
        else
            words.emplace_back(word);
    }
    std::reverse(words.begin(), words.end());
    return words;
}

std::string unmarked(std::string word) {
    if (!word.empty() && word.front() == plainMark)
        word.erase(0, 1);
    return word;
}

std::string withoutMarks(std::string text) {
    std::erase(text, plainMark);
    return text;
}

}  // namespace morvane
