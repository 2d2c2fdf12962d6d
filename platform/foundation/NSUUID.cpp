// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/HexDigit.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>

namespace morvane {
namespace {

constexpr std::size_t textLength = 36;

constexpr bool isDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

std::optional<NSUUID> NSUUID::initWithUUIDString(std::string_view text) {
    if (text.size() != textLength)
        return std::nullopt;
    Bytes bytes{};
    std::size_t digit = 0;
    for (std::size_t i = 0; i < textLength; ++i) {
        if (isDashPosition(i)) {
            if (text[i] != '-')
                return std::nullopt;
            continue;
        }
        const int value = hexDigitValue(text[i]);
        if (value < 0)
            return std::nullopt;
        auto& byte = bytes[digit / 2];
        byte = static_cast<std::uint8_t>((byte << 4) | value);
        ++digit;
    }
    return NSUUID(bytes);
}

std::string NSUUID::UUIDString() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(textLength);
    for (const auto byte : bytes_) {
        if (isDashPosition(text.size()))
            text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace morvane
