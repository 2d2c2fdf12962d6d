#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace morvane {
namespace {

std::pair<std::shared_ptr<LinuxStreamSocket>, FileDescriptor> streamAndPeer() {
    int pair[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    return {std::make_shared<LinuxStreamSocket>(FileDescriptor(pair[0])), FileDescriptor(pair[1])};
}

/// Field 22 of the process's own status line, as the kernel writes it.
std::uint64_t ownStartTime() {
    std::ifstream file("/proc/self/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string field;
    for (int i = 3; i <= 22; ++i)
        fields >> field;
    return std::stoull(field);
}

TEST(LinuxStreamSocket, TellsWhoIsAtTheOtherEndAndSinceWhen) {
    const auto [stream, peer] = streamAndPeer();
    EXPECT_EQ(stream->peer().processIdentifier, getpid());
    EXPECT_EQ(stream->peer().userIdentifier, std::int64_t{geteuid()});
    EXPECT_EQ(stream->peer().groupIdentifier, std::int64_t{getegid()});
    EXPECT_EQ(stream->peerStartTime(), ownStartTime());
}

TEST(LinuxStreamSocket, APeerThatHasEndedHasNoStartTime) {
    char folder[] = "/tmp/stream-socket-XXXXXX";
    ASSERT_TRUE(mkdtemp(folder));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const auto path = std::string(folder) + "/socket";
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listening.get(), 1), 0);
    const auto child = fork();
    if (child == 0) {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
        _exit(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    // It has ended, and until it is waited for the system still tells its start time.
    siginfo_t end{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT), 0);
    ASSERT_EQ(end.si_status, 0);
    const LinuxStreamSocket stream{FileDescriptor(accept(listening.get(), nullptr, nullptr))};
    std::filesystem::remove_all(folder);
    EXPECT_EQ(stream.peer().processIdentifier, child);
    EXPECT_EQ(stream.peerStartTime(), 0U);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(LinuxStreamSocket, SendsOnlyWhatThePeerHasRoomFor) {
    const auto [stream, peer] = streamAndPeer();
    const std::vector<std::uint8_t> bytes(std::size_t{1} << 20, 'x');
    const StreamSocket::Bytes pieces[] = {bytes};
    std::size_t sent = 0;
    while (const auto count = stream->send(pieces)) {
        if (*count == 0)
            break;
        sent += *count;
    }
    EXPECT_GT(sent, 0U);
    EXPECT_FALSE(stream->waitUntilWritable(std::chrono::steady_clock::now()));
    std::vector<std::uint8_t> into(sent);
    EXPECT_EQ(recv(peer.get(), into.data(), sent, MSG_WAITALL), static_cast<ssize_t>(sent));
    EXPECT_TRUE(stream->waitUntilWritable({}));
}

TEST(LinuxStreamSocket, HasMoreRoomForALargeMessageThanASocketStartsWith) {
    const auto room = [](auto&& send) {
        std::size_t taken = 0;
        while (const auto sent = send())
            taken += sent;
        return taken;
    };
    const std::vector<std::uint8_t> bytes(std::size_t{64} << 10, 'x');
    std::array<int, 2> plain{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, plain.data()), 0);
    const FileDescriptor one(plain[0]);
    const FileDescriptor other(plain[1]);
    const auto ordinary = room([&] {
        const auto sent = ::send(one.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        return sent > 0 ? static_cast<std::size_t>(sent) : 0;
    });
    const auto ours = streamAndPeer();
    const StreamSocket::Bytes pieces[] = {bytes};
    EXPECT_GT(room([&] { return ours.first->send(pieces).value_or(0); }), ordinary);
}

TEST(LinuxStreamSocket, APeerThatHasGoneEndsItWithoutASignal) {
    auto [stream, peer] = streamAndPeer();
    peer = FileDescriptor();
    const std::array<std::uint8_t, 1> byte{};
    const StreamSocket::Bytes pieces[] = {byte};
    EXPECT_FALSE(stream->send(pieces));
    std::array<std::uint8_t, 16> into{};
    EXPECT_EQ(stream->receive(into, {}), 0U);
}

TEST(LinuxStreamSocket, NothingUntilTheDeadlineIsTheEnd) {
    const auto [stream, peer] = streamAndPeer();
    std::array<std::uint8_t, 16> into{};
    EXPECT_EQ(stream->receive(into, std::chrono::steady_clock::now()), 0U);
}

}  // namespace
}  // namespace morvane
