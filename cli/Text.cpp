// SPDX-License-Identifier: MIT
#include "Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>
#include <optional>

namespace morvane {

namespace {

struct Character {
    char32_t code;
    std::size_t length;
};

/// Returns the UTF-8 character at the start of `text`; empty if there is none.
std::optional<Character> firstCharacter(std::string_view text) {
    const auto byte = [&](std::size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned first = byte(0);
    if (first < 0x80)
        return Character{first, 1};
    std::size_t length = 0;
    char32_t smallest = 0;
    char32_t code = 0;
    if ((first & 0xE0U) == 0xC0) {
        length = 2, smallest = 0x80, code = first & 0x1FU;
    } else if ((first & 0xF0U) == 0xE0) {
        length = 3, smallest = 0x800, code = first & 0x0FU;
    } else if ((first & 0xF8U) == 0xF0) {
        length = 4, smallest = 0x10000, code = first & 0x07U;
    } else {
        return std::nullopt;
    }
    for (std::size_t i = 1; i != length; ++i) {
        if ((byte(i) & 0xC0U) != 0x80)
            return std::nullopt;
        code = (code << 6U) | (byte(i) & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < smallest || code > 0x10FFFF || surrogate)
        return std::nullopt;
    return Character{code, length};
}

bool isControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

/// Line and paragraph separators, and what reverses the text around it.
bool isDeceptive(char32_t code) {
    return code == 0x200E || code == 0x200F || code == 0x061C ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

std::string formatted(const char* format, unsigned value) {
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), format, value);
    return buffer.data();
}

}  // namespace

std::string inSmallLetters(std::string_view text) {
    std::string small(text);
    for (char& c : small) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return small;
}

std::string escaped(std::string_view bytes) {
    std::string result;
    while (!bytes.empty()) {
        const auto character = firstCharacter(bytes);
        const std::size_t length = character ? character->length : 1;
        if (!character || isControl(character->code)) {
            for (std::size_t i = 0; i != length; ++i)
                result += formatted("\\x%02x", static_cast<unsigned char>(bytes[i]));
        } else if (isDeceptive(character->code)) {
            result += formatted("\\u{%04x}", character->code);
        } else if (character->code == U'\\') {
            result += "\\\\";
        } else {
            result += bytes.substr(0, length);
        }
        bytes.remove_prefix(length);
    }
    return result;
}

bool isUtf8(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto character = firstCharacter(bytes);
        if (!character)
            return false;
        bytes.remove_prefix(character->length);
    }
    return true;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto character = firstCharacter(text);
        const int width = character ? wcwidth(static_cast<wchar_t>(character->code)) : 1;
        columns += width < 0 ? 1 : static_cast<std::size_t>(width);
        text.remove_prefix(character ? character->length : 1);
    }
    return columns;
}

std::string cut(std::string_view text, std::size_t columns) {
    std::size_t end = text.size();
    while (columnsOf(text.substr(0, end)) > columns) {
        --end;
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80)
            --end;
    }
    return std::string(text.substr(0, end));
}

std::string padded(std::string_view text, std::size_t columns) {
    const std::size_t own = columnsOf(text);
    return std::string(text) + std::string(own < columns ? columns - own : 0, ' ');
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
    std::vector<std::string> lines{""};
    while (!text.empty()) {
        const auto blank = std::min(text.find_first_of(" \n"), text.size());
        auto word = text.substr(0, blank);
        text.remove_prefix(std::min(blank + 1, text.size()));
        const auto used = columnsOf(lines.back());
        if (used != 0 && used + 1 + columnsOf(word) > columns)
            lines.emplace_back();
        else if (used != 0 && !word.empty())
            lines.back() += ' ';
        for (auto piece = cut(word, columns); piece.size() < word.size() && !piece.empty();
             piece = cut(word, columns)) {
            lines.back() += piece;
            lines.emplace_back();
            word.remove_prefix(piece.size());
        }
        lines.back() += word;
    }
    return lines;
}

std::string sayLike(std::string_view english, std::initializer_list<std::string_view> keys) {
    for (const auto key : keys) {
        std::vector<Phrase> arguments;
        auto rest = english;
        bool fits = true;
        // Matches a placeholder, if there is one, and the text between it and the next.
        for (std::size_t at = 0; fits && at != key.size();) {
            const bool isPlaceholder = key[at] == '%';
            at += isPlaceholder ? 2 : 0;
            const auto end = std::min(key.find('%', at), key.size());
            const auto behind = key.substr(at, end - at);
            const auto found = behind.empty() ? rest.size() : rest.find(behind);
            fits = found != rest.npos && (isPlaceholder ? found != 0 : found == 0);
            if (fits && isPlaceholder)
                arguments.push_back(phrase(rest.substr(0, found)));
            if (fits)
                rest.remove_prefix(found + behind.size());
            at = end;
        }
        if (fits && rest.empty())
            return Phrase::withKey(key, arguments).localized();
    }
    return std::string(english);
}

std::string message(std::initializer_list<std::string_view> lines) {
    std::string text = "morvane: ";
    for (const auto& line : lines) {
        text += &line == lines.begin() ? "" : "  ";
        text += line;
        text += '\n';
    }
    return text;
}

std::string Style::in(std::string_view code, std::string_view text) const {
    if (!coloured_)
        return std::string(text);
    return "\x1b[" + std::string(code) + "m" + std::string(text) + "\x1b[0m";
}

}  // namespace morvane
