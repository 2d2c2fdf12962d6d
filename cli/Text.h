// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

/// Text for a terminal.
namespace morvane {

/// `bytes` with everything that a terminal would act on, or that is not UTF-8, made visible:
/// control characters and stray bytes as \xNN, characters that turn the direction of writing as
/// \u{NNNN}, a backslash as \\.
std::string escaped(std::string_view bytes);

bool isUtf8(std::string_view bytes);

/// Returns `text` with the letters of ASCII made small.
std::string inSmallLetters(std::string_view text);

/// How many columns `text` takes on a terminal.
std::size_t columnsOf(std::string_view text);

/// The first part of `text`, which is UTF-8, that is not wider than `columns`.
std::string cut(std::string_view text, std::size_t columns);

/// Returns `text` with spaces appended, up to `columns`.
std::string padded(std::string_view text, std::size_t columns);

/// Breaks `text` into lines of at most `columns`, at blanks where there are any.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

/// Returns the text of a phrase with this key, in the language of the user.
template <class... Arguments>
std::string say(std::string_view key, const Arguments&... arguments) {
    return phrase(key, arguments...).localized();
}

/// Translates an English text that was made elsewhere: by the first of `keys` that it matches,
/// whose placeholders stand for what the text has in their places. A text that matches none is
/// returned as it is.
std::string sayLike(std::string_view english, std::initializer_list<std::string_view> keys);

/// Makes a message for standard error: the name of this program, then `lines` one below the other.
std::string message(std::initializer_list<std::string_view> lines);

/// Marks texts with colours, or leaves them as they are where colours are not wanted.
class Style {
  public:
    explicit Style(bool coloured) : coloured_(coloured) {}
    std::string heading(std::string_view text) const { return in("1", text); }
    std::string good(std::string_view text) const { return in("32", text); }
    std::string bad(std::string_view text) const { return in("31", text); }
    std::string faint(std::string_view text) const { return in("2", text); }

  private:
    std::string in(std::string_view code, std::string_view text) const;
    bool coloured_;
};

}  // namespace morvane
