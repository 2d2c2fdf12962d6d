// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>

#include <chrono>
#include <string>

/// What the user sees, and can do, while a service works.
namespace morvane {

/// Whether the user has pressed Ctrl-C while there was a LiveLine.
bool isInterrupted();

/// A line on the terminal that tells how far the work is; nothing is written where standard error
/// is none. While there is one, the first Ctrl-C asks the service to stop (isInterrupted()), and a
/// second one ends this program.
class LiveLine {
  public:
    LiveLine();
    ~LiveLine();
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;

    /// Puts `line` in the place of what was shown, cut to the width of the terminal.
    static void show(const std::string& line);
    static void clear();

    /// The time since this one was made.
    std::chrono::duration<double> elapsed() const;

  private:
    struct sigaction formerAction_ {};
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Asks on the terminal whether to go on after `said`; only "y" means yes.
bool askWhetherToGoOn(const std::string& said);

}  // namespace morvane
