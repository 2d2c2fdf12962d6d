// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

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
