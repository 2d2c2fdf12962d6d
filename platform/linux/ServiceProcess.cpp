#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

extern "C" {  // this C library's header forgets to say so
#include <sys/pidfd.h>
}

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace morvane {
namespace {

/// Where a service finds its stream, and the variable that says that it is there.
constexpr int serviceDescriptor = 3;
constexpr const char* serviceVariable = "MORVANE_SERVICE_STREAM";
constexpr const char* libexecVariable = "MORVANE_LIBEXEC_DIR";

std::string libexecFolder() {
    const char* const folder = secure_getenv(libexecVariable);
    return folder && *folder ? folder : MORVANE_LIBEXEC_DIR;
}

/// The stream to a service that this process has started; clears up behind it.
class ServiceStream final : public LinuxStreamSocket {
  public:
    ServiceStream(FileDescriptor socket, pid_t child)
        : LinuxStreamSocket(std::move(socket)), child_(child) {}

    PeerCredentials peer() const override {
        // Both ends of a socket pair were made here; the process at the other end is the child.
        auto peer = LinuxStreamSocket::peer();
        peer.processIdentifier = child_;
        return peer;
    }

    void finish() override {
        const FileDescriptor process(pidfd_open(child_, 0));
        pollfd poll{process.get(), POLLIN, 0};
        const int time = static_cast<int>(limits::serviceLeaveTime.count());
        if (!process || ::poll(&poll, 1, time) <= 0)
            kill(child_, SIGKILL);
        while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

  private:
    const pid_t child_;
};

class SpawnAttributes {
  public:
    SpawnAttributes() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnAttributes() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

class PrivateServiceEndpoint final : public ServiceEndpoint {
  public:
    explicit PrivateServiceEndpoint(std::string name) : name_(std::move(name)) {}

    std::shared_ptr<StreamSocket> connect(NSErrorRef* error) override {
        const auto program = libexecFolder() + "/" + name_;
        const auto failed = [&](int code) {
            *error =
                systemError(code, "The service's program \"" + program + "\" could not be started");
            return nullptr;
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

        SpawnAttributes spawn;
        posix_spawn_file_actions_adddup2(&spawn.actions, theirs.get(), serviceDescriptor);
        posix_spawn_file_actions_addclosefrom_np(&spawn.actions, serviceDescriptor + 1);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&spawn.attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&spawn.attributes, &signals);
        // A group of its own: a terminal's Ctrl-C is the application's to answer.
        posix_spawnattr_setpgroup(&spawn.attributes, 0);
        posix_spawnattr_setflags(&spawn.attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                        POSIX_SPAWN_SETPGROUP);

        const auto marker = std::string(serviceVariable) + "=1";
        std::vector<char*> environment;
        for (char** variable = environ; *variable; ++variable)
            environment.push_back(*variable);
        environment.push_back(const_cast<char*>(marker.c_str()));
        environment.push_back(nullptr);
        char* const arguments[] = {const_cast<char*>(program.c_str()), nullptr};
        pid_t child = 0;
        const int code = posix_spawn(&child, program.c_str(), &spawn.actions, &spawn.attributes,
                                     arguments, environment.data());
        if (code != 0)
            return failed(code);
        return std::make_shared<ServiceStream>(std::move(ours), child);
    }

  private:
    const std::string name_;
};

std::atomic<unsigned> generation = 0;

}  // namespace

std::unique_ptr<ServiceEndpoint> privateServiceEndpoint(std::string name) {
    return std::make_unique<PrivateServiceEndpoint>(std::move(name));
}

std::shared_ptr<StreamSocket> inheritedStream(NSErrorRef* error) {
    const char* const marker = secure_getenv(serviceVariable);
    int type = 0;
    socklen_t size = sizeof type;
    if (!marker || getsockopt(serviceDescriptor, SOL_SOCKET, SO_TYPE, &type, &size) != 0 ||
        type != SOCK_STREAM) {
        if (error) {
            *error = systemError(
                ENOTCONN, "This program is a service; the application that uses it starts it");
        }
        return nullptr;
    }
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
