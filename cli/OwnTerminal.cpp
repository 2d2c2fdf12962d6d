// SPDX-License-Identifier: MIT
#include "OwnTerminal.h"

#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>

#include "Terminal.h"

namespace morvane {

namespace {

/// The terminal that the program was started on. It is open for reading and writing, as terminals
/// are.
constexpr int outer = STDIN_FILENO;
/// The most bytes that a terminal takes at once.
constexpr std::size_t chunk = 4096;
/// Shells add the number of the signal to this.
constexpr int endedBySignal = 128;

bool hasTerminalToAskOn() {
    return static_cast<bool>(FileDescriptor(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)));
}

bool areStreamsTerminals() {
    return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && isatty(STDERR_FILENO) != 0 &&
           (fcntl(outer, F_GETFL) & O_ACCMODE) == O_RDWR;
}

/// What the kernel tells about a process and its terminal.
struct Standing {
    pid_t parent = 0;
    pid_t group = 0;
    pid_t session = 0;
    unsigned terminal = 0;
    pid_t foreground = 0;
};

std::optional<Standing> standingOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    // The process's name stands in brackets, and may hold brackets itself.
    const auto name = text.rfind(')');
    if (name == std::string::npos)
        return std::nullopt;
    std::istringstream rest(text.substr(name + 1));
    char state = 0;
    Standing standing;
    rest >> state >> standing.parent >> standing.group >> standing.session >> standing.terminal >>
        standing.foreground;
    return rest ? std::optional(standing) : std::nullopt;
}

/// Whether what is typed on the terminal is meant for this program. That is so if the nearest
/// ancestor whose session has that terminal is in the foreground.
bool isInForeground() {
    unsigned terminal = 0;
    if (ioctl(outer, TIOCGDEV, &terminal) != 0)
        return false;
    for (auto at = standingOf(getppid()); at; at = standingOf(at->parent)) {
        if (at->terminal == terminal)
            return at->group == at->foreground;
    }
    return false;
}

/// Passes bytes between the two terminals until the child ends.
class Relay {
  public:
    /// `own` is the other end of the new terminal, in non-blocking mode; `signals` is a descriptor
    /// that delivers the blocked signals.
    Relay(pid_t child, FileDescriptor own, FileDescriptor signals)
        : child_(child), own_(std::move(own)), signals_(std::move(signals)) {}

    /// Returns the child's status, as waitpid() tells it.
    int run() {
        while (!hasEnded()) {
            // Nothing more is read while the child has not taken what was typed before.
            std::array<pollfd, 3> ends{
                {{signals_.get(), POLLIN, 0},
                 {own_.get(), static_cast<short>(typed_.empty() ? POLLIN : POLLIN | POLLOUT), 0},
                 {isHungUp_ || !typed_.empty() ? -1 : outer, POLLIN, 0}}};
            if (poll(ends.data(), ends.size(), -1) < 0)
                continue;
            if (ends[0].revents != 0)
                takeSignal();
            if (ends[2].revents != 0)
                takeTyped();
            giveTyped();
            show();
        }
        while (show()) {
        }
        return status_;
    }

  private:
    bool hasEnded() { return waitpid(child_, &status_, WNOHANG) != 0; }

    void takeSignal() {
        signalfd_siginfo taken{};
        if (read(signals_.get(), &taken, sizeof taken) == sizeof taken &&
            taken.ssi_signo != SIGCHLD)
            kill(child_, static_cast<int>(taken.ssi_signo));
    }

    void takeTyped() {
        // Its size may have changed meanwhile.
        winsize size{};
        if (ioctl(outer, TIOCGWINSZ, &size) == 0)
            ioctl(own_.get(), TIOCSWINSZ, &size);
        std::array<char, chunk> bytes;
        const ssize_t count = read(outer, bytes.data(), bytes.size());
        if (count > 0) {
            typed_.assign(bytes.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            isHungUp_ = true;
            kill(child_, SIGHUP);
        }
    }

    void giveTyped() {
        const ssize_t count = typed_.empty() ? 0 : write(own_.get(), typed_.data(), typed_.size());
        if (count > 0)
            typed_.erase(0, static_cast<std::size_t>(count));
    }

    /// Passes on one piece, so that typing is looked at between two. Returns false if there was
    /// none.
    bool show() {
        std::array<char, chunk> bytes;
        const ssize_t count = read(own_.get(), bytes.data(), bytes.size());
        if (count > 0)
            putOnTerminal({bytes.data(), static_cast<std::size_t>(count)});
        return count > 0;
    }

    pid_t child_;
    FileDescriptor own_;
    FileDescriptor signals_;
    std::string typed_;
    bool isHungUp_ = false;
    int status_ = 0;
};

}  // namespace

void moveToOwnTerminal() {
    if (hasTerminalToAskOn() || !areStreamsTerminals() || !isInForeground())
        return;
    termios settings{};
    winsize size{};
    int own = -1;
    int inner = -1;
    if (tcgetattr(outer, &settings) != 0 || ioctl(outer, TIOCGWINSZ, &size) != 0 ||
        openpty(&own, &inner, nullptr, &settings, &size) != 0)
        return;
    fcntl(own, F_SETFD, FD_CLOEXEC);
    fcntl(inner, F_SETFD, FD_CLOEXEC);
    fcntl(own, F_SETFL, O_RDWR | O_NONBLOCK);
    sigset_t signals;
    sigset_t former;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM})
        sigaddset(&signals, number);
    FileDescriptor told(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!told) {
        close(own);
        close(inner);
        return;
    }
    sigprocmask(SIG_BLOCK, &signals, &former);
    signal(SIGCHLD, SIG_DFL);  // whoever ignores it is not told how a child has ended
    const pid_t child = fork();
    if (child > 0) {
        // As it is open here too, what the child has written last is not lost.
        Relay relay(child, FileDescriptor(own), std::move(told));
        termios raw = settings;
        cfmakeraw(&raw);
        tcsetattr(outer, TCSADRAIN, &raw);
        const int status = relay.run();
        tcsetattr(outer, TCSADRAIN, &settings);
        std::_Exit(WIFEXITED(status) ? WEXITSTATUS(status) : endedBySignal + WTERMSIG(status));
    }
    if (child == 0) {
        setsid();
        ioctl(inner, TIOCSCTTY, 0);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            dup2(inner, stream);
    }
    sigprocmask(SIG_SETMASK, &former, nullptr);
    close(own);
    close(inner);
}

}  // namespace morvane
