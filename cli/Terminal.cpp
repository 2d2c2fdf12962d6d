#include "Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include "EditScreen.h"

namespace morvane {

namespace {

constexpr int noByte = -1;
constexpr int waitForEver = -1;
/// The rest of a key's sequence comes at once; a person's next key does not.
constexpr int sequenceMilliseconds = 50;

void put(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return;
        text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

}  // namespace

bool Terminal::isThere() {
    const char* const kind = std::getenv("TERM");
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && kind &&
           std::string_view(kind) != "dumb";
}

Terminal::Terminal() {
    if (tcgetattr(STDIN_FILENO, &former_) != 0)
        throw std::system_error(errno, std::generic_category(), "the terminal cannot be read");
    termios raw = former_;
    cfmakeraw(&raw);
    // Line ends are still the terminal's business.
    raw.c_oflag |= OPOST;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &raw) != 0)
        throw std::system_error(errno, std::generic_category(), "the terminal cannot be set");
    put("\033[?1049h\033[?25l");
}

Terminal::~Terminal() {
    put("\033[?25h\033[?1049l");
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &former_);
}

std::pair<std::size_t, std::size_t> Terminal::size() const {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

void Terminal::show(const std::string& text) {
    put("\033[H\033[2J" + text);
}

int Terminal::nextByte(int milliseconds) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (true) {
        const int ready = poll(&input, 1, milliseconds);
        if (ready == 0)
            return noByte;
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
            return keyInterrupt;
        if (first == keyEscape) {
            const int second = nextByte(sequenceMilliseconds);
            if (second != '[' && second != 'O')
                return keyEscape;
            int last = nextByte(sequenceMilliseconds);
            while (last != noByte && (last < '@' || last > '~'))
                last = nextByte(sequenceMilliseconds);
            switch (last) {
                case 'A':
                    return keyUp;
                case 'B':
                    return keyDown;
                case 'C':
                    return keyRight;
                case 'D':
                    return keyLeft;
                default:
                    continue;
            }
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
