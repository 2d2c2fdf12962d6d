// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/foundation/Translation.h>

#include <charconv>
#include <optional>
#include <system_error>

namespace morvane {
namespace {

/// More stand in no phrase that is made here; one that comes from elsewhere is not read deeper.
constexpr int maxDepth = 16;
/// What a code may unfold into, for each of its bytes, at most: whoever sends one could write a key
/// with a placeholder that stands there again and again.
constexpr std::size_t maxUnfolding = 64;
/// A translation is longer than its key, but not by so much.
constexpr std::size_t roomForTranslation = 4096;

/// What stands before a part of a code: what it is.
constexpr char nameMark = '=';
constexpr char keyMark = 'k';
constexpr char tableMark = 't';
constexpr char countMark = 'c';
constexpr char listMark = 'l';
constexpr char systemMark = 'e';

struct Malformed {};

std::string counted(std::string_view text) {
    return std::to_string(text.size()) + ':' + std::string(text);
}

std::string codeOf(const Phrase& phrase) {
    return phrase.code().empty() ? nameMark + counted(phrase.english()) : phrase.code();
}

std::string codeOf(const std::vector<Phrase>& phrases) {
    auto code = std::to_string(phrases.size()) + ':';
    for (const auto& each : phrases)
        code += codeOf(each);
    return code;
}

std::vector<std::string> englishOf(const std::vector<Phrase>& phrases) {
    std::vector<std::string> texts;
    texts.reserve(phrases.size());
    for (const auto& each : phrases)
        texts.push_back(each.english());
    return texts;
}

/// `format` with its placeholders filled in.
std::string filled(std::string_view format, const std::vector<std::string>& arguments) {
    std::string text;
    for (std::size_t i = 0; i != format.size(); ++i) {
        const auto place = i + 1 == format.size() ? std::string_view::npos
                                                  : static_cast<std::size_t>(format[i + 1] - '1');
        if (format[i] == '%' && place < arguments.size()) {
            text += arguments[place];
            ++i;
        } else {
            text += format[i];
        }
    }
    return text;
}

/// `items` with `separator` between each two.
std::string joinedBy(std::string_view separator, const std::vector<std::string>& items) {
    std::string text;
    for (std::size_t i = 0; i != items.size(); ++i) {
        text += i == 0 ? std::string_view() : separator;
        text += items[i];
    }
    return text;
}

/// Says what a code stands for: in English, as its keys have it, or as they are translated.
class Reading {
  public:
    enum class Language { english, own };

    /// `room` bytes at most are made of it, on the way to the text.
    Reading(std::string_view code, Language language, std::size_t room)
        : rest_(code), isOwn_(language == Language::own), room_(room) {}

    /// Throws Malformed.
    std::string whole() {
        auto text = part(0);
        if (!rest_.empty())
            throw Malformed();
        return text;
    }

  private:
    std::string part(int depth) {
        if (rest_.empty() || depth > maxDepth)
            throw Malformed();
        const char mark = rest_.front();
        rest_.remove_prefix(1);
        switch (mark) {
            case nameMark:
                return taken(std::string(countedText()));
            case keyMark: {
                const auto key = countedText();
                return said(isOwn_ ? translated({}, key) : std::string(key), depth);
            }
            case tableMark: {
                const auto table = countedText();
                const auto key = countedText();
                return taken(isOwn_ ? translated(table, key) : std::string(key));
            }
            case countMark: {
                const auto count = number<std::uint64_t>();
                const auto one = countedText();
                const auto many = countedText();
                return said(
                    isOwn_ ? translated(one, many, count) : std::string(count == 1 ? one : many),
                    depth);
            }
            case listMark: {
                const auto separator = countedText();
                return taken(joinedBy(isOwn_ ? translated({}, separator) : std::string(separator),
                                      parts(depth)));
            }
            case systemMark: {
                const auto code = number<int>();
                const auto english = countedText();
                return taken(isOwn_ ? std::generic_category().message(code) : std::string(english));
            }
            default:
                throw Malformed();
        }
    }

    std::string said(const std::string& format, int depth) {
        return taken(filled(format, parts(depth)));
    }

    std::vector<std::string> parts(int depth) {
        std::vector<std::string> texts;
        for (auto count = number<std::size_t>(); count != 0; --count)
            texts.push_back(part(depth + 1));
        return texts;
    }

    /// Up to a colon, which is taken too.
    template <class Number>
    Number number() {
        Number value{};
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), value);
        const auto length = static_cast<std::size_t>(end - rest_.data());
        if (error != std::errc() || length == rest_.size() || *end != ':')
            throw Malformed();
        rest_.remove_prefix(length + 1);
        return value;
    }

    std::string_view countedText() {
        const auto length = number<std::size_t>();
        if (length > rest_.size())
            throw Malformed();
        const auto text = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return text;
    }

    std::string taken(std::string text) {
        if (text.size() > room_)
            throw Malformed();
        room_ -= text.size();
        return text;
    }

    std::string_view rest_;
    const bool isOwn_;
    std::size_t room_;
};

/// Nothing if the code is malformed, or unfolds into too much.
std::optional<std::string> readAs(Reading::Language language, std::string_view code) {
    try {
        return Reading(code, language, roomForTranslation + maxUnfolding * code.size()).whole();
    } catch (const Malformed&) {
        return std::nullopt;
    }
}

}  // namespace

Phrase::Phrase(std::string name) : english_(std::move(name)) {}

Phrase Phrase::withKey(std::string_view key, const std::vector<Phrase>& arguments) {
    if (key.empty())
        return {};
    return {filled(key, englishOf(arguments)), keyMark + (counted(key) + codeOf(arguments))};
}

Phrase Phrase::withCount(std::string_view one, std::string_view many, std::uint64_t count,
                         const std::vector<Phrase>& arguments) {
    return {filled(count == 1 ? one : many, englishOf(arguments)),
            countMark + (std::to_string(count) + ':') + counted(one) + counted(many) +
                codeOf(arguments)};
}

Phrase Phrase::inTable(std::string_view table, std::string_view key) {
    if (key.empty())
        return {};
    return {std::string(key), tableMark + (counted(table) + counted(key))};
}

Phrase Phrase::list(std::string_view separator, const std::vector<Phrase>& items) {
    return {joinedBy(separator, englishOf(items)), listMark + (counted(separator) + codeOf(items))};
}

Phrase Phrase::ofSystemError(int code) {
    auto text = std::generic_category().message(code);
    auto encoded = systemMark + (std::to_string(code) + ':') + counted(text);
    return {std::move(text), std::move(encoded)};
}

Phrase Phrase::decoded(std::string_view code, std::string english) {
    if (readAs(Reading::Language::english, code) != english)
        return Phrase(std::move(english));
    return {std::move(english), std::string(code)};
}

Phrase Phrase::received(std::string_view reason) {
    if (auto english = readAs(Reading::Language::english, reason))
        return {std::move(*english), std::string(reason)};
    return withKey(reason);
}

std::string Phrase::localized() const {
    if (code_.empty())
        return english_;
    return readAs(Reading::Language::own, code_).value_or(english_);
}

}  // namespace morvane
