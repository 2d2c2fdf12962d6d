// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// UTF-8, which texts are in, and UTF-16, which a property list has for some.
namespace morvane {

/// Whether a text has only characters that are the same in ASCII and UTF-8.
inline bool isAscii(std::string_view text) {
    // Eight at a time: nearly every text is.
    const char* p = text.data();
    std::size_t left = text.size();
    std::uint64_t all = 0;
    for (; left >= sizeof all; p += sizeof all, left -= sizeof all) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, p, sizeof eight);
        all |= eight;
    }
    for (; left > 0; ++p, --left)
        all |= static_cast<unsigned char>(*p);
    return (all & 0x8080808080808080U) == 0;
}

/// Appends UTF-8 text as big-endian UTF-16. False, with nothing appended, if it is not UTF-8.
bool appendUtf16BigEndian(std::string_view utf8, std::vector<std::uint8_t>& out);

/// Big-endian UTF-16 as UTF-8; empty if a surrogate stands alone.
std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> utf16);

/// The text with U+FFFD for each byte that is not part of UTF-8.
std::string validUtf8(std::string_view bytes);

}  // namespace morvane
