#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

namespace morvane {
namespace {

/// SO_PEERPIDFD, which the headers lack.
constexpr int peerPidfdOption = 77;

/// The peer's process, or an errno value.
FileDescriptor processBehind(const FileDescriptor& socket, int* code) {
    int process = -1;
    socklen_t size = sizeof process;
    *code = getsockopt(socket.get(), SOL_SOCKET, peerPidfdOption, &process, &size) == 0 ? 0 : errno;
    return FileDescriptor(*code == 0 ? process : -1);
}

bool isAlive(const FileDescriptor& process) {
    pollfd poll{process.get(), POLLIN, 0};
    return ::poll(&poll, 1, 0) == 0;
}

/// As whom the process acts; -1 if there is none.
std::int64_t userOfProcess(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; file >> word;) {
        std::int64_t real = -1;
        std::int64_t effective = -1;
        if (word == "Uid:" && file >> real >> effective)
            return effective;
    }
    return -1;
}

/// The start time of the process with the peer's number, if it is one of the peer's user and alive
/// after both were read: so neither is that of a process which has got the number since.
std::uint64_t startTimeByNumber(const FileDescriptor& process, const PeerCredentials& peer) {
    const auto startTime = startTimeOfProcess(peer.processIdentifier);
    const auto user = userOfProcess(peer.processIdentifier);
    return user == peer.userIdentifier && isAlive(process) ? startTime : 0;
}

}  // namespace

std::uint64_t startTimeOfProcess(std::int64_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat", std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    // The second field is the program's name in brackets, which may hold blanks and brackets.
    auto at = text.rfind(')');
    constexpr int fieldsBetween = 20;
    for (int i = 0; i != fieldsBetween && at != text.npos; ++i)
        at = text.find(' ', at + 1);
    return at == text.npos ? 0 : std::strtoull(text.c_str() + at + 1, nullptr, 10);
}

PeerProcess::PeerProcess(const FileDescriptor& socket, const std::optional<PeerCredentials>& peer) {
    int code = 0;
    processBehind(socket, &code);
    if (code != ENOPROTOOPT || !peer || peer->processIdentifier <= 0)
        return;
    held_ = FileDescriptor(
        static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(peer->processIdentifier), 0)));
    if (held_)
        heldSince_ = startTimeByNumber(held_, *peer);
}

std::uint64_t PeerProcess::startTime(const FileDescriptor& socket,
                                     const PeerCredentials& peer) const {
    int code = 0;
    if (const auto process = processBehind(socket, &code)) {
        const auto startTime = startTimeOfProcess(peer.processIdentifier);
        // Alive after its time was read: the time is not that of another process with the same id.
        return isAlive(process) ? startTime : 0;
    }
    return held_ && startTimeByNumber(held_, peer) == heldSince_ ? heldSince_ : 0;
}

}  // namespace morvane
