// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morvane {

/// A text for people: in English, with what is needed to say it in another language.
///
///     const auto why = phrase("There is no entry %1.", 3);
///     assert(why.english() == "There is no entry 3.");
///     show(why.localized());  // "Es gibt keinen Eintrag 3." in a German program
///
/// The English text with its placeholders (%1 to %9) is the key of the translation. A service makes
/// phrases and never translates them; they travel with its errors, and the program that shows them
/// looks them up in its own language. Phrases are values, and are compared by their English texts.
/// Any thread.
class MORVANE_EXPORT Phrase {
  public:
    /// The empty text.
    Phrase() = default;
    /// A text that is the same in every language, such as a name.
    Phrase(std::string name);
    Phrase(std::string_view name) : Phrase(std::string(name)) {}
    Phrase(const char* name) : Phrase(std::string(name)) {}
    /// A number, in digits.
    template <std::integral Number>
    Phrase(Number number) : Phrase(std::to_string(number)) {}

    /// The text with the key `key`, whose placeholders stand for the `arguments`.
    static Phrase withKey(std::string_view key, const std::vector<Phrase>& arguments = {});
    /// Of the two keys the one for `count` things in English; other languages have one, or several.
    static Phrase withCount(std::string_view one, std::string_view many, std::uint64_t count,
                            const std::vector<Phrase>& arguments);
    /// A key of a table, such as "Read" of "ACL": the same word may be another there.
    static Phrase inTable(std::string_view table, std::string_view key);
    /// `items` with the text `separator`, a key as well, between each two.
    static Phrase list(std::string_view separator, const std::vector<Phrase>& items);
    /// The system's text for an errno value.
    static Phrase ofSystemError(int code);

    /// What code() gave, if it says `english` in English; otherwise `english` as it is. What comes
    /// from another process costs no more time and memory than its length allows.
    static Phrase decoded(std::string_view code, std::string english);
    /// The reason of a peer that has refused a request: a code, or a key, or a text that is shown
    /// as it came.
    static Phrase received(std::string_view reason);

    bool empty() const { return english_.empty(); }
    const std::string& english() const { return english_; }
    /// In the language of this process, which is English until it calls setlocale().
    std::string localized() const;
    /// What decoded() takes; empty if the text is the same in every language.
    const std::string& code() const { return code_; }

    friend bool operator==(const Phrase& a, const Phrase& b) { return a.english_ == b.english_; }
    friend auto operator<=>(const Phrase& a, const Phrase& b) { return a.english_ <=> b.english_; }
    friend std::ostream& operator<<(std::ostream& stream, const Phrase& phrase) {
        return stream << phrase.english_;
    }

  private:
    Phrase(std::string english, std::string code)
        : english_(std::move(english)), code_(std::move(code)) {}

    std::string english_;
    std::string code_;
};

/// Phrase::withKey() with the arguments themselves: phrases, texts and numbers.
template <class... Arguments>
Phrase phrase(std::string_view key, const Arguments&... arguments) {
    return Phrase::withKey(key, {Phrase(arguments)...});
}

/// Phrase::withCount() likewise. The count is the first argument, %1, and the others follow.
template <class... Arguments>
Phrase countedPhrase(std::string_view one, std::string_view many, std::uint64_t count,
                     const Arguments&... arguments) {
    return Phrase::withCount(one, many, count, {Phrase(count), Phrase(arguments)...});
}

/// Marks a key that is looked up later, for the list of texts to translate.
constexpr const char* translatable(const char* key) {
    return key;
}
/// Likewise a key of a table.
constexpr const char* translatable(const char* /*table*/, const char* key) {
    return key;
}

}  // namespace morvane
