// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace morvane {
namespace {

/// The value of SO_PEERPIDFD, which the C library's headers lack.
constexpr int peerPidfdOption = 77;

bool isAlive(const FileDescriptor& process) {
    pollfd poll{process.get(), POLLIN, 0};
    return ::poll(&poll, 1, 0) == 0;
}

/// Returns the effective user id of the process with this status file; -1 if the process has ended.
std::int64_t userByStatus(const FileDescriptor& status) {
    // The lines up to the wanted one are far shorter than this.
    std::array<char, 1024> text{};
    const auto count = pread(status.get(), text.data(), text.size() - 1, 0);
    const char* const line = count > 0 ? std::strstr(text.data(), "\nUid:") : nullptr;
    long long effective = -1;
    return line && std::sscanf(line, "\nUid: %*d %lld", &effective) == 1 ? effective : -1;
}

bool isShortage(int code) {
    return code == EMFILE || code == ENFILE || code == ENOMEM;
}

}  // namespace

std::uint64_t startTimeOfProcess(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat", std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    // The second field is the program's name in brackets, which may itself contain blanks and
    // brackets.
    auto at = text.rfind(')');
    constexpr int fieldsBetween = 20;
    for (int i = 0; i != fieldsBetween && at != text.npos; ++i)
        at = text.find(' ', at + 1);
    return at == text.npos ? 0 : std::strtoull(text.c_str() + at + 1, nullptr, 10);
}

PeerProcess::PeerProcess(const FileDescriptor& socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.pid <= 0)
        return;
    errno = 0;
    hold(socket, {peer.pid, peer.uid, peer.gid});
    isMissed_ = startTime_ == 0 && isShortage(errno);
}

void PeerProcess::hold(const FileDescriptor& socket, const PeerCredentials& peer) {
    int process = -1;
    socklen_t size = sizeof process;
    if (getsockopt(socket.get(), SOL_SOCKET, peerPidfdOption, &process, &size) == 0) {
        process_ = FileDescriptor(process);
    } else if (errno == ENOPROTOOPT) {
        process_ = FileDescriptor(static_cast<int>(
            syscall(SYS_pidfd_open, static_cast<pid_t>(peer.processIdentifier), 0)));
        if (!process_)
            return;
        const auto path = "/proc/" + std::to_string(peer.processIdentifier) + "/status";
        status_ = FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!status_)
            return;
    }
    if (!process_)
        return;
    const auto startTime = startTimeOfProcess(peer.processIdentifier);
    const int code = errno;
    // The process is alive after its time was read, so the time is not that of another process with
    // the same id.
    startTime_ = startTime;
    startTime_ = this->startTime(peer);
    errno = code;
}

std::uint64_t PeerProcess::startTime(const PeerCredentials& peer) const {
    if (status_ && userByStatus(status_) != peer.userIdentifier)
        return 0;
    return process_ && isAlive(process_) ? startTime_ : 0;
}

}  // namespace morvane
