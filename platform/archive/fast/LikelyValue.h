// SPDX-License-Identifier: MIT
#pragma once

/// For the row archive-decode-entry of the bench: a value is mostly a short one of the kind that is
/// expected. Part of PropertyListReader.h.
namespace morvane {

template <PropertyListReader::Kind likely>
[[gnu::always_inline]] inline PropertyListReader::Value PropertyListReader::value(
    std::uint64_t ref) const {
    const auto* const p = locate(ref);
    if (!p)
        return anyValue(ref);
    const auto left = static_cast<std::uint64_t>(table_ - p) - 1;
    const unsigned low = *p & 0x0Fu;
    const unsigned high = *p >> 4;
    if constexpr (likely == Kind::boolean) {
        if ((*p & 0xFE) == 0x08)
            return {Kind::boolean, 0, {*p & 1u}};
    } else if constexpr (likely == Kind::integer) {
        if (high == 0x1 && low <= 3 && (1u << low) <= left)
            return {Kind::integer, 0, {bigEndian(p + 1, 1u << low)}};
    } else if constexpr (likely == Kind::uid) {
        if (high == 0x8 && low < 8 && low < left)
            return {Kind::uid, 0, {bigEndian(p + 1, low + 1)}};
    } else if constexpr (likely == Kind::data) {
        // Of 256 to 65,535 bytes: a nested archive.
        if (*p == 0x4F && left >= 3 && p[1] == 0x11) {
            const auto size = static_cast<std::uint32_t>(bigEndian(p + 2, 2));
            if (size <= left - 3)
                return counted(Kind::data, size, p + 4);
        }
    } else if constexpr (likely == Kind::ascii) {
        if (const auto text = textAt(p); text.bytes)
            return counted(Kind::ascii, static_cast<std::uint32_t>(text.size), text.bytes);
    } else if constexpr (likely == Kind::array) {
        if (high == 0xA && low != 15 && low * std::uint64_t{refSize_} <= left)
            return counted(Kind::array, low, p + 1);
    } else if constexpr (likely == Kind::dictionary) {
        if (high == 0xD && low != 15 && low * std::uint64_t{refSize_} * 2 <= left)
            return counted(Kind::dictionary, low, p + 1);
    }
    return anyValue(ref);
}

}  // namespace morvane
