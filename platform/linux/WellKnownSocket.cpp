// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/linux/ReadinessWorkers.h>
#include <MorvaneOperation/platform/linux/WellKnownSocket.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace morvane {
namespace {

constexpr const char* runtimeFolder = "/run";
constexpr const char* runtimeVariable = "MORVANE_RUNTIME_DIR";
/// The first descriptor that a service manager hands over.
constexpr int firstActivated = 3;
/// How long a client for which no descriptor was left waits before accepting it is tried again.
constexpr int retryMilliseconds = 50;

class WellKnownServiceEndpoint final : public ServiceEndpoint {
  public:
    WellKnownServiceEndpoint(std::string name, bool privileged)
        : privileged_(privileged), path_(folder(privileged) + "/" + name + ".sock") {}

    Result<std::shared_ptr<StreamSocket>> connect() override {
        const auto failed = [&](int code) {
            return Failure{
                systemError(code, phrase("The service's socket \"%1\" cannot be used", path_))};
        };
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path_.size() >= sizeof address.sun_path)
            return failed(ENAMETOOLONG);
        std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
        // Only root can put a socket there; the process behind it is checked after connecting and
        // before anything is sent.
        struct stat status {};
        if (privileged_ && (lstat(path_.c_str(), &status) != 0))
            return failed(errno);
        if (privileged_ && (!S_ISSOCK(status.st_mode) || status.st_uid != 0))
            return failed(EPERM);
        FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!socket)
            return failed(errno);
        if (const int code = connectWithin(limits::frameTime, socket, address))
            return failed(code);
        auto stream = std::make_shared<LinuxStreamSocket>(std::move(socket));
        if (privileged_) {
            const auto peer = stream->peer();
            if (!peer || peer->userIdentifier != 0)
                return failed(EPERM);
        }
        return stream;
    }

  private:
    static std::string folder(bool privileged) {
        // A privileged service is where root has put it, whatever the environment says.
        const char* const other = privileged ? nullptr : secure_getenv(runtimeVariable);
        return other && *other ? other : runtimeFolder;
    }

    const bool privileged_;
    const std::string path_;
};

class ActivatedListener final : public StreamListener {
  public:
    explicit ActivatedListener(FileDescriptor socket) : socket_(std::move(socket)) {
        fcntl(socket_.get(), F_SETFL, fcntl(socket_.get(), F_GETFL) | O_NONBLOCK);
    }
    ~ActivatedListener() override { stop(); }

    void holdPeerProcesses() override { holdsPeers_ = true; }

    void start(std::function<void(bool alone)> task) override {
        watchReadable(socket_.get(), std::move(task));
    }

    std::shared_ptr<StreamSocket> accept() override {
        FileDescriptor client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (client) {
            auto peer = holdsPeers_ ? PeerProcess(client) : PeerProcess();
            if (!peer.isMissed())
                return std::make_shared<LinuxStreamSocket>(std::move(client), std::move(peer));
            // A client whose process cannot be determined is disconnected; it may connect again.
            errno = EMFILE;
        }
        // The client stays in the queue until there is a descriptor for it.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            poll(nullptr, 0, retryMilliseconds);
        return nullptr;
    }

    void waitForNext() override { watchAgain(socket_.get()); }
    void stop() override { stopWatching(socket_.get()); }

  private:
    const FileDescriptor socket_;
    bool holdsPeers_ = false;
};

}  // namespace

int connectWithin(std::chrono::milliseconds time, const FileDescriptor& socket,
                  const sockaddr_un& address) {
    using std::chrono::microseconds;
    const auto deadline = std::chrono::steady_clock::now() + time;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<microseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= left.zero())
            return ETIMEDOUT;
        // The time limit of a send also limits the wait for a place in the backlog.
        constexpr auto second = microseconds(std::chrono::seconds(1)).count();
        const timeval limit{left.count() / second, left.count() % second};
        if (setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0)
            return errno;
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0)
            return 0;
        if (errno != EINTR && errno != EAGAIN)
            return errno;
    }
}

std::unique_ptr<ServiceEndpoint> wellKnownServiceEndpoint(std::string name, bool privileged) {
    return std::make_unique<WellKnownServiceEndpoint>(std::move(name), privileged);
}

Result<std::unique_ptr<StreamListener>> inheritedListener() {
    const char* const pid = secure_getenv("LISTEN_PID");
    const char* const count = secure_getenv("LISTEN_FDS");
    int listening = 0;
    socklen_t size = sizeof listening;
    if (!pid || !count || std::to_string(getpid()) != pid || std::strcmp(count, "1") != 0 ||
        getsockopt(firstActivated, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) != 0 ||
        listening == 0)
        return Failure{systemError(
            ENOTCONN,
            phrase("This program is a service; the service manager starts it with its socket"))};
    for (const char* variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(variable);
    fcntl(firstActivated, F_SETFD, FD_CLOEXEC);
    return std::make_unique<ActivatedListener>(FileDescriptor(firstActivated));
}

}  // namespace morvane
