// SPDX-License-Identifier: MIT
#include "ListWords.h"

namespace morvane {

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const auto first = text.find_first_not_of(blanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0;;) {
        const auto end = text.find(separator, begin);
        parts.push_back(trimmed(text.substr(begin, end - begin)));
        if (end == text.npos)
            return parts;
        begin = end + 1;
    }
}

UserDatabase& systemUsers() {
    return CBIdentityAuthority::defaultIdentityAuthority().database();
}

std::optional<std::string> nameOfNumber(std::uint32_t id, bool isGroup) {
    const auto record = isGroup ? systemUsers().groupWithId(id) : systemUsers().userWithId(id);
    // A name with characters that would end it, or the line, is replaced by the number.
    if (!record || record->name.find_first_of(":#,\\ \t\n") != std::string::npos)
        return std::nullopt;
    return record->name;
}

std::string numberComment(std::uint32_t id, bool isGroup) {
    return (isGroup ? "\t#gid=" : "\t#uid=") + std::to_string(id);
}

std::optional<std::uint32_t> numberToldBy(std::string_view comments) {
    for (const auto comment : split(comments, '#')) {
        if (comment.starts_with("uid=") || comment.starts_with("gid="))
            return numberIn<std::uint32_t>(comment.substr(comment.find('=') + 1));
    }
    return std::nullopt;
}

}  // namespace morvane
