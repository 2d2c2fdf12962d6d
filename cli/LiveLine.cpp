// SPDX-License-Identifier: MIT
#include "LiveLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "Text.h"

namespace morvane {

namespace {

std::atomic<bool> interrupted = false;

/// The columns of a line on standard error; empty where none can be drawn over and over.
std::optional<std::size_t> columnsOfLiveLine() {
    const char* const kind = std::getenv("TERM");
    if (isatty(STDERR_FILENO) == 0 || !kind || std::string_view(kind) == "dumb")
        return std::nullopt;
    constexpr std::size_t usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

}  // namespace

bool isInterrupted() {
    return interrupted;
}

LiveLine::LiveLine() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = true; };
    action.sa_flags = SA_RESETHAND | SA_RESTART;
    sigaction(SIGINT, &action, &formerAction_);
}

LiveLine::~LiveLine() {
    clear();
    sigaction(SIGINT, &formerAction_, nullptr);
}

void LiveLine::show(const std::string& line) {
    if (const auto columns = columnsOfLiveLine()) {
        // The last column would take the cursor to the next line.
        std::fprintf(stderr, "\r\033[K%s", cut(line, *columns - 1).c_str());
        std::fflush(stderr);
    }
}

void LiveLine::clear() {
    if (columnsOfLiveLine())
        std::fputs("\r\033[K", stderr);
}

std::chrono::duration<double> LiveLine::elapsed() const {
    return std::chrono::steady_clock::now() - start_;
}

bool askWhetherToGoOn(const std::string& said) {
    LiveLine::clear();
    std::fputs((said + '\n' + say("Go on? (y/n)") + ' ').c_str(), stderr);
    std::fflush(stderr);
    std::string answer;
    for (int c = std::getchar(); c != EOF && c != '\n'; c = std::getchar())
        answer += static_cast<char>(c);
    return !isInterrupted() && (answer == "y" || answer == "Y");
}

}  // namespace morvane
