// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/HexDigit.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace morvane {
namespace {

constexpr std::string_view fileScheme = "file:";

/// RFC 3986: the characters of a path that stand for themselves.
constexpr std::array<bool, 256> makePathCharacters() {
    std::array<bool, 256> allowed{};
    for (const char c : std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789-._~!$&'()*+,=:@/")) {
        allowed[static_cast<unsigned char>(c)] = true;
    }
    return allowed;
}
constexpr auto pathCharacters = makePathCharacters();

std::optional<std::string> unescape(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            if (text[i] == '\0')
                return std::nullopt;
            result += text[i];
            continue;
        }
        if (text.size() - i < 3)
            return std::nullopt;
        const int high = hexDigitValue(text[i + 1]);
        const int low = hexDigitValue(text[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0))
            return std::nullopt;
        result += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return result;
}

bool hasScheme(std::string_view text) {
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0)
        return false;
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    if (!isLetter(text[0]))
        return false;
    for (const char c : text.substr(1, colon - 1)) {
        if (!isLetter(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.')
            return false;
    }
    return true;
}

/// Whether `text` begins with `prefix`, which is in small letters, in either case.
bool startsWith(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char small, char c) {
               return (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) == small;
           });
}

}  // namespace

NSURL NSURL::fileURLWithPath(std::string_view path) {
    if (path.empty() || path.find('\0') != std::string_view::npos) {
        throw NSException(NSInvalidArgumentException,
                          "A file URL needs a path that is not empty and holds no NUL byte.");
    }
    if (path.front() == '/')
        return {true, std::string(path)};
    return {true, (std::filesystem::current_path() / path).string()};
}

std::optional<NSURL> NSURL::URLWithString(std::string_view text) {
    if (!hasScheme(text))
        return std::nullopt;
    if (!startsWith(text, fileScheme)) {
        if (text.find('\0') != std::string_view::npos)
            return std::nullopt;
        return NSURL(false, std::string(text));
    }
    auto rest = text.substr(fileScheme.size());
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        if (startsWith(rest, "localhost/"))
            rest.remove_prefix(std::string_view("localhost").size());
    }
    if (!rest.starts_with('/'))
        return std::nullopt;
    auto path = unescape(rest);
    if (!path)
        return std::nullopt;
    return NSURL(true, std::move(*path));
}

const std::string& NSURL::path() const {
    // Never destroyed: other threads may ask while the process ends.
    static const auto& none = *new std::string;
    return isFile_ ? value_ : none;
}

std::string NSURL::lastPathComponent() const {
    std::string_view rest = path();
    while (rest.size() > 1 && rest.back() == '/')
        rest.remove_suffix(1);
    if (rest == "/")
        return "/";
    return std::string(rest.substr(rest.rfind('/') + 1));
}

NSURL NSURL::URLByAppendingPathComponent(std::string_view name) const {
    std::string child = value_;
    if (child.empty() || child.back() != '/')
        child += '/';
    child += name;
    return {isFile_, std::move(child)};
}

std::string NSURL::absoluteString() const {
    if (!isFile_)
        return value_;
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text = "file://";
    text.reserve(text.size() + value_.size());
    for (const char c : value_) {
        const auto byte = static_cast<unsigned char>(c);
        if (pathCharacters[byte]) {
            text += c;
        } else {
            text += '%';
            text += digits[byte >> 4];
            text += digits[byte & 15];
        }
    }
    return text;
}

}  // namespace morvane
