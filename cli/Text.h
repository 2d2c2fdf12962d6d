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

/// The columns that `text` takes on a terminal.
std::size_t columnsOf(std::string_view text);

/// The first part of `text`, which is UTF-8, that is not wider than `columns`.
std::string cut(std::string_view text, std::size_t columns);

/// `text` with spaces behind it, up to `columns`.
std::string padded(std::string_view text, std::size_t columns);

/// `text` in lines of at most `columns`, parted at blanks, and where there is none.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

/// The text of a phrase with this key in the language of the terminal's user.
template <class... Arguments>
std::string say(std::string_view key, const Arguments&... arguments) {
    return phrase(key, arguments...).localized();
}

/// A text that is made elsewhere, and in English, in the language of the user: by the first of
/// `keys` that it fits, whose placeholders then stand for what is in their places. One that fits
/// none stays as it is.
std::string sayLike(std::string_view english, std::initializer_list<std::string_view> keys);

/// What this program has to say on standard error: its name, then `lines` one below the other.
std::string message(std::initializer_list<std::string_view> lines);

/// Colours, or nothing where colours are not wanted.
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
