// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

/// The terminal that this program runs on, taken over for a screen of its own: keys come one by one
/// and are not shown, and what stood there comes back afterwards, also when a signal ends the
/// program.
namespace morvane {

/// Writes all of `text` to the standard output, unless that fails. A signal handler may call it.
void putOnTerminal(std::string_view text);

/// There is at most one at a time.
class Terminal {
  public:
    /// Whether both ends of this program are a terminal that can show a screen.
    static bool isThere();

    /// Throws std::system_error if the terminal cannot be set.
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// The present number of rows and columns.
    std::pair<std::size_t, std::size_t> size() const;
    void show(const std::string& text);
    /// Gives the terminal back and stops the program until the user continues it. The screen must
    /// be shown again then.
    void suspend();
    /// Waits for a key: a character, or one of EditKey.
    char32_t nextKey();

  private:
    void takeOver();
    int nextByte(int milliseconds);
};

}  // namespace morvane
