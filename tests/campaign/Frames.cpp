// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/Frame.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

/// Frames SERVICE SOCKET COUNT SEED: starts the listening service SERVICE and sends it so many
/// frames, most of them malformed, over as many connections as it takes; each thousand of them a
/// sound request has to be answered. The exit status is 1 if the service ended or did not answer.
namespace {

using namespace morvane;
using Bytes = std::vector<std::uint8_t>;

constexpr int patienceMilliseconds = 60000;
constexpr const char* selector = "echo:reply:";

int connectTo(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

Bytes frame(FrameHeader header, const Bytes& payload) {
    const auto bytes = header.bytes();
    Bytes whole(bytes.begin(), bytes.end());
    whole.insert(whole.end(), payload.begin(), payload.end());
    return whole;
}

Bytes request(const Bytes& body) {
    Bytes payload(selector, selector + std::strlen(selector));
    payload.insert(payload.end(), body.begin(), body.end());
    FrameHeader header;
    header.selectorLength = static_cast<std::uint8_t>(std::strlen(selector));
    header.payloadLength = static_cast<std::uint32_t>(payload.size());
    header.id = 1;
    return frame(header, payload);
}

/// The archive of the argument "x", as a host encodes it.
Bytes soundBody() {
    NSKeyedArchiver coder;
    coder.encodeString(std::string("x"), "0");
    return std::move(coder).finishEncoding();
}

Bytes malformed(std::mt19937& chance) {
    const auto upTo = [&](std::size_t most) {
        return std::uniform_int_distribution<std::size_t>(0, most)(chance);
    };
    static const auto sound = request(soundBody());
    auto bytes = sound;
    for (auto changes = upTo(6); changes != 0; --changes)
        bytes[upTo(bytes.size() - 1)] = static_cast<std::uint8_t>(upTo(255));
    // The header alone, often: what is behind it is for the decoder.
    if (upTo(1) == 0)
        bytes[upTo(FrameHeader::size - 1)] = static_cast<std::uint8_t>(upTo(255));
    if (upTo(3) == 0)
        bytes.resize(upTo(bytes.size()));
    return bytes;
}

/// Whether a new client is answered.
bool answers(const char* path) {
    const int fd = connectTo(path);
    if (fd < 0)
        return false;
    const auto sound = request(soundBody());
    bool answered =
        send(fd, sound.data(), sound.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(sound.size());
    pollfd poll{fd, POLLIN, 0};
    std::uint8_t first[FrameHeader::size];
    answered = answered && ::poll(&poll, 1, patienceMilliseconds) == 1 &&
               recv(fd, first, sizeof first, MSG_WAITALL) == static_cast<ssize_t>(sizeof first);
    close(fd);
    return answered;
}

pid_t start(const char* service, const char* path) {
    unlink(path);
    const int listening = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    if (bind(listening, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listening, 64) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        dup2(listening, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        execl(service, service, "activated", nullptr);
        _exit(127);
    }
    close(listening);
    return child;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5)
        return 64;
    const char* const path = argv[2];
    const long count = std::atol(argv[3]);
    std::mt19937 chance(static_cast<unsigned>(std::atol(argv[4])));
    const pid_t service = start(argv[1], path);
    if (service <= 0)
        return 70;
    // Stays, so that the service never finds itself without a client.
    const int resident = connectTo(path);
    long connections = 0;
    long sent = 0;
    int fd = -1;
    while (sent < count) {
        if (fd < 0) {
            fd = connectTo(path);
            ++connections;
            if (fd < 0)
                break;
        }
        const auto bytes = malformed(chance);
        const auto taken = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ++sent;
        std::uint8_t some[4096];
        const auto received = recv(fd, some, sizeof some, MSG_DONTWAIT);
        if (taken < 0 || received == 0 || sent % 16 == 0) {
            close(fd);
            fd = -1;
        }
        if (sent % 1000 == 0 && !answers(path))
            break;
    }
    int status = 0;
    const bool ended = waitpid(service, &status, WNOHANG) != 0;
    const bool stands = sent == count && !ended && answers(path);
    std::printf("{\"frames\": %ld, \"connections\": %ld, \"stands\": %s}\n", sent, connections,
                stands ? "true" : "false");
    if (!ended) {
        kill(service, SIGTERM);
        waitpid(service, &status, 0);
    }
    close(resident);
    return stands ? 0 : 1;
}
