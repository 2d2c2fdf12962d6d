// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/Unicode.h>

namespace morvane {
namespace {

bool isSurrogate(std::uint32_t c) {
    return c >= 0xD800 && c < 0xE000;
}

/// Takes one code point from the front of `text`; empty if it does not begin with one.
std::optional<std::uint32_t> takeCodePoint(std::string_view& text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t first = byte(0);
    std::size_t length = 0;
    std::uint32_t c = 0;
    std::uint32_t least = 0;
    if (first < 0x80) {
        length = 1;
        c = first;
    } else if ((first & 0xE0) == 0xC0) {
        length = 2;
        c = first & 0x1F;
        least = 0x80;
    } else if ((first & 0xF0) == 0xE0) {
        length = 3;
        c = first & 0x0F;
        least = 0x800;
    } else if ((first & 0xF8) == 0xF0) {
        length = 4;
        c = first & 0x07;
        least = 0x10000;
    } else {
        return std::nullopt;
    }
    if (text.size() < length)
        return std::nullopt;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return std::nullopt;
        c = c << 6 | (byte(i) & 0x3Fu);
    }
    if (c < least || c > 0x10FFFF || isSurrogate(c))
        return std::nullopt;
    text.remove_prefix(length);
    return c;
}

void appendUtf8(std::uint32_t c, std::string& out) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

bool appendUtf16BigEndian(std::string_view utf8, std::vector<std::uint8_t>& out) {
    const auto start = out.size();
    const auto append = [&](std::uint32_t unit) {
        out.push_back(static_cast<std::uint8_t>(unit >> 8));
        out.push_back(static_cast<std::uint8_t>(unit & 0xff));
    };
    while (!utf8.empty()) {
        const auto c = takeCodePoint(utf8);
        if (!c) {
            out.resize(start);
            return false;
        }
        if (*c < 0x10000) {
            append(*c);
        } else {
            append(0xD800 + ((*c - 0x10000) >> 10));
            append(0xDC00 + ((*c - 0x10000) & 0x3FF));
        }
    }
    return true;
}

std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> utf16) {
    std::string text;
    text.reserve(utf16.size());
    const auto unit = [&](std::size_t i) {
        return static_cast<std::uint32_t>(utf16[i] << 8 | utf16[i + 1]);
    };
    for (std::size_t i = 0; i + 1 < utf16.size(); i += 2) {
        std::uint32_t c = unit(i);
        if (isSurrogate(c)) {
            if (c >= 0xDC00 || i + 3 >= utf16.size())
                return std::nullopt;
            const std::uint32_t low = unit(i + 2);
            if (low < 0xDC00 || low >= 0xE000)
                return std::nullopt;
            c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
            i += 2;
        }
        appendUtf8(c, text);
    }
    return text;
}

std::string validUtf8(std::string_view bytes) {
    constexpr std::uint32_t replacement = 0xFFFD;
    std::string text;
    while (!bytes.empty()) {
        const auto before = bytes;
        if (takeCodePoint(bytes)) {
            text += before.substr(0, before.size() - bytes.size());
        } else {
            appendUtf8(replacement, text);
            bytes.remove_prefix(1);
        }
    }
    return text;
}

}  // namespace morvane
