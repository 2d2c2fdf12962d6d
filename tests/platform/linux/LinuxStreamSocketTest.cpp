// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <string>

#include "OrdinaryUser.h"

namespace morvane {
namespace {

/// As a service has it.
std::shared_ptr<LinuxStreamSocket> accepted(FileDescriptor socket) {
    PeerProcess peer(socket);
    return std::make_shared<LinuxStreamSocket>(std::move(socket), std::move(peer));
}

std::pair<std::shared_ptr<LinuxStreamSocket>, FileDescriptor> streamAndPeer() {
    int pair[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    return {accepted(FileDescriptor(pair[0])), FileDescriptor(pair[1])};
}

/// Runs `test` while this process can have so many more descriptors.
void withDescriptorsLeft(rlim_t count, const std::function<void()>& test) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const FileDescriptor next(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
    const rlimit limit{static_cast<rlim_t>(next.get()) + 1 + count, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    test();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
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
    EXPECT_EQ(stream->peer()->processIdentifier, getpid());
    EXPECT_EQ(stream->peer()->userIdentifier, std::int64_t{geteuid()});
    EXPECT_EQ(stream->peer()->groupIdentifier, std::int64_t{getegid()});
    EXPECT_EQ(stream->peerStartTime(), ownStartTime());
}

/// A stream whose peer is a process of its own, which does as it is told after it has connected.
class ProcessAtTheOtherEnd {
  public:
    explicit ProcessAtTheOtherEnd(
        const std::function<void()>& then, const std::function<void()>& before = [] {}) {
        // A name of its own that no file has.
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        socklen_t size = sizeof(sa_family_t);
        EXPECT_EQ(bind(listening.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
        size = sizeof address;
        EXPECT_EQ(getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
        EXPECT_EQ(listen(listening.get(), 1), 0);
        int done[2] = {-1, -1};
        EXPECT_EQ(pipe2(done, O_CLOEXEC), 0);
        pid = fork();
        if (pid == 0) {
            before();
            const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
            if (connect(socket, reinterpret_cast<sockaddr*>(&address), size) != 0)
                _exit(1);
            then();
            EXPECT_EQ(write(done[1], "", 1), 1);
            pause();
        }
        close(done[1]);
        stream = accepted(FileDescriptor(accept(listening.get(), nullptr, nullptr)));
        char none = 0;
        EXPECT_EQ(read(done[0], &none, 1), 1);
        close(done[0]);
    }
    /// Until it is waited for the system still tells its start time.
    void kill() const {
        ASSERT_EQ(::kill(pid, SIGKILL), 0);
        siginfo_t end{};
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &end, WEXITED | WNOWAIT), 0);
    }
    ~ProcessAtTheOtherEnd() {
        ::kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    pid_t pid = -1;
    std::shared_ptr<LinuxStreamSocket> stream;
};

TEST(LinuxStreamSocket, APeerThatHasEndedHasNoStartTime) {
    const ProcessAtTheOtherEnd peer([] {});
    EXPECT_EQ(peer.stream->peer()->processIdentifier, peer.pid);
    EXPECT_NE(peer.stream->peerStartTime(), 0U);
    peer.kill();
    EXPECT_EQ(peer.stream->peerStartTime(), 0U);
}

TEST(LinuxStreamSocket, APeerIsKnownAlthoughNoDescriptorIsLeft) {
    const ProcessAtTheOtherEnd peer([] {});
    const auto known = peer.stream->peerStartTime();
    EXPECT_NE(known, 0U);
    withDescriptorsLeft(0, [&] { EXPECT_EQ(peer.stream->peerStartTime(), known); });
}

TEST(LinuxStreamSocket, APeerThatThereIsNoDescriptorForIsMissed) {
    const auto pair = streamAndPeer();
    for (rlim_t left = 0; left < 2; ++left) {
        withDescriptorsLeft(left, [&] {
            const PeerProcess process(pair.second);
            EXPECT_TRUE(process.isMissed());
            EXPECT_EQ(process.startTime(*pair.first->peer()), 0U);
        });
    }
    EXPECT_FALSE(PeerProcess(pair.second).isMissed());
}

/// Runs `test` in a process of its own, where /etc has nothing but a list of lent user numbers.
void whereNumbersAreLent(const std::string& list, const std::function<void()>& test) {
    const pid_t pid = fork();
    if (pid == 0) {
        EXPECT_EQ(unshare(CLONE_NEWNS), 0);
        EXPECT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        EXPECT_EQ(mount("none", "/etc", "tmpfs", 0, nullptr), 0);
        std::ofstream("/etc/subuid") << list;
        test();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0);
}

TEST(LinuxStreamSocket, WhoeverIsLentANumberAnswersForTheProcessThatHasIt) {
    whereNumbersAreLent("4711:100000:65536\n", [] {
        const ProcessAtTheOtherEnd peer([] {}, [] { EXPECT_EQ(setuid(100005), 0); });
        EXPECT_EQ(peer.stream->peer()->userIdentifier, 100005);
        EXPECT_EQ(peer.stream->accountableUser(), 4711);
    });
}

/// As on a kernel that does not hand out the process behind a socket.
class LinuxStreamSocketOfAnOlderKernel : public testing::Test {
  protected:
    /// Does all of it in a process of its own, which cannot have the option back.
    static void inOne(const std::function<void()>& test) {
        const pid_t pid = fork();
        if (pid == 0) {
            forgetPeerPidfd();
            test();
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_EQ(status, 0);
    }

  private:
    static void forgetPeerPidfd() {
        constexpr std::uint32_t peerPidfdOption = 77;
        sock_filter rules[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getsockopt, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, peerPidfdOption, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOPROTOOPT),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog program{std::size(rules), rules};
        ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
        ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
    }
};

TEST_F(LinuxStreamSocketOfAnOlderKernel, TellsSinceWhenThePeerIsThere) {
    inOne([] {
        const auto [stream, peer] = streamAndPeer();
        EXPECT_EQ(stream->peerStartTime(), ownStartTime());
    });
}

TEST_F(LinuxStreamSocketOfAnOlderKernel, APeerThatHasEndedHasNoStartTime) {
    inOne([] {
        const ProcessAtTheOtherEnd peer([] {});
        EXPECT_NE(peer.stream->peerStartTime(), 0U);
        peer.kill();
        EXPECT_EQ(peer.stream->peerStartTime(), 0U);
    });
}

TEST_F(LinuxStreamSocketOfAnOlderKernel, APeerIsKnownAlthoughNoDescriptorIsLeft) {
    inOne([] {
        const ProcessAtTheOtherEnd peer([] {});
        const auto known = peer.stream->peerStartTime();
        EXPECT_NE(known, 0U);
        withDescriptorsLeft(0, [&] { EXPECT_EQ(peer.stream->peerStartTime(), known); });
    });
}

TEST_F(LinuxStreamSocketOfAnOlderKernel, APeerThatHasBecomeAnotherUserHasNoStartTime) {
    inOne([] {
        const ProcessAtTheOtherEnd peer([] { EXPECT_EQ(setuid(ordinaryUser), 0); });
        EXPECT_EQ(peer.stream->peerStartTime(), 0U);
    });
}

TEST_F(LinuxStreamSocketOfAnOlderKernel, AProcessThatHasThePeersNumberSinceIsNotThePeer) {
    inOne([] {
        // Numbers of its own, of which nobody else takes one.
        ASSERT_EQ(unshare(CLONE_NEWPID | CLONE_NEWNS), 0);
        const pid_t first = fork();
        if (first == 0) {
            EXPECT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
            EXPECT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
            const ProcessAtTheOtherEnd peer([] {});
            EXPECT_NE(peer.stream->peerStartTime(), 0U);
            peer.kill();
            EXPECT_EQ(waitpid(peer.pid, nullptr, 0), peer.pid);
            std::ofstream("/proc/sys/kernel/ns_last_pid") << peer.pid - 1 << std::flush;
            const pid_t other = fork();
            if (other == 0)
                pause();
            EXPECT_EQ(other, peer.pid);
            EXPECT_EQ(peer.stream->peerStartTime(), 0U);
            kill(other, SIGKILL);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(first, &status, 0), first);
        EXPECT_EQ(status, 0);
    });
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
    std::promise<void> writable;
    auto isWritable = writable.get_future();
    stream->whenWritable([&] { writable.set_value(); });
    EXPECT_EQ(isWritable.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    std::vector<std::uint8_t> into(sent);
    EXPECT_EQ(recv(peer.get(), into.data(), sent, MSG_WAITALL), static_cast<ssize_t>(sent));
    EXPECT_EQ(isWritable.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

TEST(LinuxStreamSocket, IsWaitedForBothWaysAtOnce) {
    const auto [stream, peer] = streamAndPeer();
    const std::vector<std::uint8_t> bytes(std::size_t{1} << 20, 'x');
    const StreamSocket::Bytes pieces[] = {bytes};
    while (stream->send(pieces).value_or(0) != 0) {
    }
    std::promise<void> readable;
    std::promise<void> writable;
    auto isReadable = readable.get_future();
    auto isWritable = writable.get_future();
    stream->whenWritable([&] { writable.set_value(); });
    stream->whenReadable([&] { readable.set_value(); });
    EXPECT_EQ(send(peer.get(), "x", 1, 0), 1);
    EXPECT_EQ(isReadable.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_EQ(isWritable.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    stream->shutdown();
    EXPECT_EQ(isWritable.wait_for(std::chrono::seconds(30)), std::future_status::ready);
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
