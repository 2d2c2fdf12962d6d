// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The words of which every form of a list as text is made.
namespace morvane {

/// How an entry is read whose user or group has a name that this system does not know.
enum class UnknownNames {
    /// The name is a mistake.
    areRefused,
    /// The number behind the entry is used: the name was known when the list was written.
    haveNumbers
};

/// Returns `text` without blanks at its ends.
std::string_view trimmed(std::string_view text);

/// The parts of `text` between separators, each trimmed.
std::vector<std::string_view> split(std::string_view text, char separator);

/// Reads the whole of `text` as a number.
template <class Number>
std::optional<Number> numberIn(std::string_view text, int base = 10) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

/// The users and groups of this system.
UserDatabase& systemUsers();

/// Returns the name of a user or group; empty if there is none, or it would not be read back as one
/// word.
std::optional<std::string> nameOfNumber(std::uint32_t id, bool isGroup);

/// The comment that tells the number of the user or group of an entry: "\t#uid=1001".
std::string numberComment(std::uint32_t id, bool isGroup);

/// The number that such a comment tells. Other comments may stand before and behind it.
std::optional<std::uint32_t> numberToldBy(std::string_view comments);

}  // namespace morvane
