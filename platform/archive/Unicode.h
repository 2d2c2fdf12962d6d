// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The two encodings that a property list's text goes between.
namespace morvane {

/// Appends UTF-8 text as big-endian UTF-16. False, with nothing appended, if it is not UTF-8.
bool appendUtf16BigEndian(std::string_view utf8, std::vector<std::uint8_t>& out);

/// Big-endian UTF-16 as UTF-8; empty if a surrogate stands alone.
std::optional<std::string> utf8FromUtf16BigEndian(std::span<const std::uint8_t> utf16);

}  // namespace morvane
