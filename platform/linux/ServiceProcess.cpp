// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/linux/SpawnAttributes.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>

extern "C" {  // The C library's header lacks this.
#include <sys/pidfd.h>
}

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace morvane {
namespace {

/// The descriptor of a service's stream, and the variable that tells the service that it has one.
constexpr int serviceDescriptor = 3;
constexpr const char* serviceVariable = "MORVANE_SERVICE_STREAM";
constexpr const char* libexecVariable = "MORVANE_LIBEXEC_DIR";

std::string libexecFolder() {
    const char* const folder = secure_getenv(libexecVariable);
    return folder && *folder ? folder : packageProgramFolder();
}

/// The stream to a service that this process has started; it ends and reaps the process afterwards.
class ServiceStream final : public LinuxStreamSocket {
  public:
    explicit ServiceStream(FileDescriptor socket) : LinuxStreamSocket(std::move(socket)) {}

    /// To be called before the stream is used. `process` is the child's descriptor, or empty if the
    /// child has already ended. This needs no memory, as the child is already running.
    void serviceStarted(pid_t child, FileDescriptor process) noexcept {
        child_ = child;
        process_ = std::move(process);
    }

    std::optional<PeerCredentials> peer() const override {
        // This process made both ends of the socket pair, so the kernel would report it; the
        // process at the other end is the child.
        auto peer = LinuxStreamSocket::peer();
        if (peer)
            peer->processIdentifier = child_;
        return peer;
    }

    void finish() override {
        if (!process_)
            return;
        // The signal is sent through the descriptor: if the application has reaped the child, its
        // id may belong to another process now.
        pollfd poll{process_.get(), POLLIN, 0};
        constexpr auto second = std::chrono::milliseconds(std::chrono::seconds(1)).count();
        constexpr auto time = limits::serviceLeaveTime.count();
        constexpr timespec limit{time / second, time % second * 1000000};
        sigset_t all;
        sigfillset(&all);
        if (ppoll(&poll, 1, &limit, &all) <= 0)
            pidfd_send_signal(process_.get(), SIGKILL, nullptr, 0);
        siginfo_t how;
        while (waitid(P_PIDFD, process_.get(), &how, WEXITED) != 0 && errno == EINTR) {
        }
    }

  private:
    pid_t child_ = 0;
    FileDescriptor process_;
};

/// Returns a descriptor of the child that was just started; it is empty, with `errno` set, if there
/// is none.
FileDescriptor descriptorOf(pid_t child) {
    FileDescriptor process(pidfd_open(child, 0));
    siginfo_t how;
    // If children are reaped automatically, another process may have the id already.
    if (process && waitid(P_PIDFD, process.get(), &how, WEXITED | WNOHANG | WNOWAIT) != 0) {
        errno = ESRCH;
        return {};
    }
    return process;
}

class PrivateServiceEndpoint final : public ServiceEndpoint {
  public:
    explicit PrivateServiceEndpoint(std::string name) : name_(std::move(name)) {}

    Result<std::shared_ptr<StreamSocket>> connect() override {
        const auto program = libexecFolder() + "/" + name_;
        const auto failed = [&](int code) {
            return Failure{systemError(
                code, phrase("The service's program \"%1\" could not be started", program))};
        };
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
            return failed(errno);
        FileDescriptor ours(pair[0]);
        FileDescriptor theirs(pair[1]);
        if (theirs.get() == serviceDescriptor) {
            // dup2() onto itself would leave it close-on-exec.
            theirs = FileDescriptor(fcntl(pair[1], F_DUPFD_CLOEXEC, serviceDescriptor + 1));
            if (!theirs)
                return failed(errno);
        }

        SpawnAttributes spawn(POSIX_SPAWN_SETPGROUP);
        // Each of these calls needs memory, and a service without its stream would be useless.
        if (const int code =
                posix_spawn_file_actions_adddup2(&spawn.actions, theirs.get(), serviceDescriptor))
            return failed(code);
        if (const int code =
                posix_spawn_file_actions_addclosefrom_np(&spawn.actions, serviceDescriptor + 1))
            return failed(code);
        // The service has a process group of its own, as the application decides what a terminal's
        // Ctrl-C means.
        posix_spawnattr_setpgroup(&spawn.attributes, 0);

        const auto marker = std::string(serviceVariable) + "=1";
        std::vector<char*> environment;
        for (char** variable = environ; *variable; ++variable)
            environment.push_back(*variable);
        environment.push_back(const_cast<char*>(marker.c_str()));
        environment.push_back(nullptr);
        char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
        auto stream = std::make_shared<ServiceStream>(std::move(ours));
        pid_t child = 0;
        const int code = posix_spawn(&child, program.c_str(), &spawn.actions, &spawn.attributes,
                                     arguments, environment.data());
        if (code != 0)
            return failed(code);
        theirs = {};
        auto process = descriptorOf(child);
        // A child that could be neither ended nor reaped notices the end of the stream and exits.
        if (!process && errno != ESRCH)
            return failed(errno);
        stream->serviceStarted(child, std::move(process));
        return stream;
    }

  private:
    const std::string name_;
};

std::atomic<unsigned> generation = 0;

}  // namespace

std::unique_ptr<ServiceEndpoint> privateServiceEndpoint(std::string name) {
    return std::make_unique<PrivateServiceEndpoint>(std::move(name));
}

Result<std::shared_ptr<StreamSocket>> inheritedStream() {
    const char* const marker = secure_getenv(serviceVariable);
    int type = 0;
    socklen_t size = sizeof type;
    if (!marker || getsockopt(serviceDescriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 ||
        type != SOCK_STREAM)
        return Failure{systemError(
            ENOTCONN, phrase("This program is a service; the application that uses it starts it"))};
    unsetenv(serviceVariable);
    fcntl(serviceDescriptor, F_SETFD, FD_CLOEXEC);
    return std::make_shared<LinuxStreamSocket>(FileDescriptor(serviceDescriptor));
}

unsigned processGeneration() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] { ++generation; });
    (void)registered;
    return generation.load(std::memory_order_relaxed);
}

}  // namespace morvane
