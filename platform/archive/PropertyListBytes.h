// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// How values stand in a binary property list. Each put...() returns where the next may stand.
namespace morvane::property_list_bytes {

template <class T>
T bigEndian(T value) {
    static_assert(std::endian::native == std::endian::little);
    if constexpr (sizeof(T) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(T) == 4) {
        return __builtin_bswap32(value);
    } else if constexpr (sizeof(T) == 8) {
        return __builtin_bswap64(value);
    } else {
        return value;
    }
}

template <class T>
inline std::uint8_t* put(std::uint8_t* p, T value) {
    const T big = bigEndian(value);
    std::memcpy(p, &big, sizeof big);
    return p + sizeof big;
}

inline std::uint8_t* putInteger(std::uint8_t* p, std::uint64_t value) {
    if (value <= 0xff) {
        *p++ = 0x10;
        return put(p, static_cast<std::uint8_t>(value));
    }
    if (value <= 0xffff) {
        *p++ = 0x11;
        return put(p, static_cast<std::uint16_t>(value));
    }
    if (value <= 0xffffffff) {
        *p++ = 0x12;
        return put(p, static_cast<std::uint32_t>(value));
    }
    *p++ = 0x13;
    return put(p, value);
}

inline std::uint8_t* putMarker(std::uint8_t* p, unsigned type, std::uint32_t count) {
    if (count < 15) {
        *p++ = static_cast<std::uint8_t>(type | count);
        return p;
    }
    *p++ = static_cast<std::uint8_t>(type | 15);
    return putInteger(p, count);
}

inline std::size_t integerSize(std::uint64_t value) {
    return value <= 0xff ? 2 : value <= 0xffff ? 3 : value <= 0xffffffff ? 5 : 9;
}

constexpr std::size_t mostIntegerBytes = 9;
constexpr std::size_t mostMarkerBytes = 1 + mostIntegerBytes;

/// Of a marker with its count.
inline std::size_t markerSize(std::uint32_t count) {
    return count < 15 ? 1 : 1 + integerSize(count);
}

inline std::uint8_t* putUid(std::uint8_t* p, std::uint64_t value) {
    // A UID's marker holds its length less one.
    auto* const end = putInteger(p, value);
    *p = static_cast<std::uint8_t>(0x80 | (end - p - 2));
    return end;
}

/// As memcpy(); most texts are short, and take no call.
inline std::uint8_t* putBytes(std::uint8_t* p, const void* bytes, std::size_t size) {
    const auto* const from = static_cast<const std::uint8_t*>(bytes);
    const auto word = [&]<class Word>(Word value, std::size_t at) {
        std::memcpy(&value, from + at, sizeof value);
        std::memcpy(p + at, &value, sizeof value);
    };
    // The two words overlap.
    if (size >= 8 && size <= 16) {
        word(std::uint64_t{}, 0);
        word(std::uint64_t{}, size - 8);
    } else if (size >= 4 && size < 8) {
        word(std::uint32_t{}, 0);
        word(std::uint32_t{}, size - 4);
    } else if (size != 0) {
        std::memcpy(p, from, size);
    }
    return p + size;
}

constexpr std::size_t trailerSize = 32;

inline std::uint8_t* putTrailer(std::uint8_t* p, std::size_t offsetSize, std::size_t refSize,
                                std::uint64_t count, std::uint64_t root, std::uint64_t table) {
    for (int unused = 0; unused < 6; ++unused)
        *p++ = 0;
    *p++ = static_cast<std::uint8_t>(offsetSize);
    *p++ = static_cast<std::uint8_t>(refSize);
    p = put(p, count);
    p = put(p, root);
    return put(p, table);
}

}  // namespace morvane::property_list_bytes
