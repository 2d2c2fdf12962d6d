// SPDX-License-Identifier: MIT
#include "Terminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <system_error>

#include "EditKeys.h"

namespace morvane {

namespace {

constexpr int noByte = -1;
/// Returned in place of a byte when the size has changed.
constexpr int resized = -2;
constexpr int waitForEver = -1;
/// The rest of a key's sequence comes at once; a person's next key does not.
constexpr int sequenceMilliseconds = 50;

constexpr std::array endingSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

/// The settings that the signal handler restores; they are set before it can run.
termios formerSettings;

/// A descriptor that becomes readable when the terminal changes its size.
int resizes = -1;

void tellOfResize(int) {
    const int before = errno;
    eventfd_write(resizes, 1);
    errno = before;
}

/// The key of the sequence that ends with `last` and begins with the number `parameter`.
std::optional<char32_t> keyOfSequence(int parameter, int last) {
    switch (last) {
        case 'A':
            return keyUp;
        case 'B':
            return keyDown;
        case 'C':
            return keyRight;
        case 'D':
            return keyLeft;
        case 'H':
            return keyHome;
        case 'F':
            return keyBottom;
        case '~':
            break;
        default:
            return std::nullopt;
    }
    switch (parameter) {
        case '1':
        case '7':
            return keyHome;
        case '4':
        case '8':
            return keyBottom;
        case '5':
            return keyPageUp;
        case '6':
            return keyPageDown;
        default:
            return std::nullopt;
    }
}

/// It only calls what is safe in a signal handler.
void giveBackTheTerminal() {
    putOnTerminal("\033[?25h\033[?1049l");
    tcsetattr(STDIN_FILENO, TCSANOW, &formerSettings);
}

/// SA_RESETHAND has restored the default action: the signal, raised anew, ends the program as soon
/// as this returns.
void endBySignal(int number) {
    giveBackTheTerminal();
    raise(number);
}

}  // namespace

void putOnTerminal(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return;
        text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

bool Terminal::isThere() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && kind &&
           std::string_view(kind) != "dumb";
}

void Terminal::takeOver() {
    termios raw = formerSettings;
    cfmakeraw(&raw);
    // The terminal still turns a line feed into a new line.
    raw.c_oflag |= OPOST;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw) != 0)
        throw std::system_error(errno, std::generic_category(), "the terminal cannot be set");
    putOnTerminal("\033[?1049h\033[?25l");
}

void Terminal::suspend() {
    giveBackTheTerminal();
    // Where no shell could continue the program, this does not stop it.
    raise(SIGTSTP);
    takeOver();
}

Terminal::Terminal() {
    if (tcgetattr(STDIN_FILENO, &formerSettings) != 0)
        throw std::system_error(errno, std::generic_category(), "the terminal cannot be read");
    for (const int number : endingSignals) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        // A signal that is ignored, as under nohup, stays ignored.
        if (action.sa_handler == SIG_IGN)
            continue;
        action = {};
        action.sa_handler = endBySignal;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        sigaction(number, &action, nullptr);
    }
    resizes = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction resize {};
    resize.sa_handler = tellOfResize;
    resize.sa_flags = SA_RESTART;
    sigaction(SIGWINCH, &resize, nullptr);
    takeOver();
}

Terminal::~Terminal() {
    giveBackTheTerminal();
    signal(SIGWINCH, SIG_DFL);
    close(resizes);
    for (const int number : endingSignals) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler == endBySignal)
            signal(number, SIG_DFL);
    }
}

std::pair<std::size_t, std::size_t> Terminal::size() const {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

void Terminal::show(const std::string& text) {
    putOnTerminal("\033[H\033[2J" + text);
}

int Terminal::nextByte(int milliseconds) {
    std::array<pollfd, 2> inputs{{{STDIN_FILENO, POLLIN, 0}, {resizes, POLLIN, 0}}};
    // A change of size within a key's sequence is told after it.
    const nfds_t watched = milliseconds == waitForEver ? inputs.size() : 1;
    while (true) {
        const int ready = poll(inputs.data(), watched, milliseconds);
        if (ready == 0)
            return noByte;
        eventfd_t times = 0;
        if (ready > 0 && inputs[1].revents != 0 && eventfd_read(resizes, &times) == 0)
            return resized;
        unsigned char byte = 0;
        if (ready > 0) {
            const ssize_t count = read(STDIN_FILENO, &byte, 1);
            if (count == 1)
                return byte;
            if (count == 0)
                return noByte;
        }
        if (errno != EINTR)
            return noByte;
    }
}

char32_t Terminal::nextKey() {
    while (true) {
        const int first = nextByte(waitForEver);
        if (first == noByte)
            return keyEnd;
        if (first == resized)
            return keyResized;
        if (first == keyEscape) {
            const int second = nextByte(sequenceMilliseconds);
            if (second != '[' && second != 'O')
                return keyEscape;
            int last = nextByte(sequenceMilliseconds);
            const int parameter = last;
            while (last != noByte && (last < '@' || last > '~'))
                last = nextByte(sequenceMilliseconds);
            if (const auto key = keyOfSequence(parameter, last))
                return *key;
            continue;
        }
        if (first < 0x80)
            return static_cast<char32_t>(first);
        const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC0 ? 1 : 0;
        if (more == 0)
            continue;
        auto character = static_cast<char32_t>(first & (0x3F >> more));
        for (int i = 0; i != more; ++i) {
            const int next = nextByte(sequenceMilliseconds);
            character = character << 6 | static_cast<char32_t>(next & 0x3F);
        }
        return character;
    }
}

}  // namespace morvane
