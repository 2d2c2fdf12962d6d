// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/WellKnownSocket.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "OrdinaryUser.h"
#include "TemporaryFolder.h"

namespace morvane {
namespace {

constexpr std::chrono::milliseconds shortTime{100};

/// A name that no service has, and the places where its socket may lie.
class WellKnownSocketTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(geteuid(), 0U) << "the tests of privileged sockets make root's and others'";
        std::filesystem::permissions(folder, std::filesystem::perms::all);
        setenv("MORVANE_RUNTIME_DIR", folder.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove(privilegedPath); }

    static sockaddr_un addressOf(const std::filesystem::path& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.native().size() + 1);
        return address;
    }
    /// Clients that nobody accepts, as many as the listener at `path` has places for.
    static std::vector<FileDescriptor> fillBacklog(const std::filesystem::path& path) {
        const auto address = addressOf(path);
        std::vector<FileDescriptor> clients;
        do {
            clients.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        } while (::connect(clients.back().get(), reinterpret_cast<const sockaddr*>(&address),
                           sizeof address) == 0);
        EXPECT_EQ(errno, EAGAIN);
        clients.pop_back();
        return clients;
    }
    /// A socket on which a process of `user` listens.
    static FileDescriptor listenAt(const std::filesystem::path& path, uid_t user = 0) {
        const auto address = addressOf(path);
        FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        // Whose process it is, is told as of now.
        EXPECT_EQ(seteuid(user), 0);
        EXPECT_EQ(listen(socket.get(), 8), 0);
        EXPECT_EQ(seteuid(0), 0);
        return socket;
    }
    static FileDescriptor accept(const FileDescriptor& listening) {
        return FileDescriptor(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    Result<std::shared_ptr<StreamSocket>> connect(bool privileged) const {
        return wellKnownServiceEndpoint(name, privileged)->connect();
    }
    void expectRefused(bool privileged, int code) const {
        const auto stream = connect(privileged);
        ASSERT_FALSE(stream);
        EXPECT_EQ(stream.error()->domain(), NSPOSIXErrorDomain);
        EXPECT_EQ(stream.error()->code(), code);
    }

    const std::string name = "morvane-test-" + std::to_string(getpid());
    const std::filesystem::path privilegedPath = "/run/" + name + ".sock";
    const TemporaryFolder temporary;
    const std::filesystem::path& folder = temporary.path();
};

TEST_F(WellKnownSocketTest, RootsServiceOnRootsSocketIsPrivileged) {
    const auto listening = listenAt(privilegedPath);
    const auto stream = connect(true);
    ASSERT_TRUE(stream);
    EXPECT_EQ((*stream)->peer()->userIdentifier, 0);
    EXPECT_EQ((*stream)->peer()->processIdentifier, getpid());
    EXPECT_TRUE(accept(listening));
}

TEST_F(WellKnownSocketTest, ASquattersSocketIsNotEvenConnectedTo) {
    const auto listening = listenAt(privilegedPath);
    ASSERT_EQ(chown(privilegedPath.c_str(), ordinaryUser, ordinaryUser), 0);
    expectRefused(true, EPERM);
    EXPECT_FALSE(accept(listening));
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(WellKnownSocketTest, ASquatterBehindRootsSocketIsToldNothing) {
    const auto listening = listenAt(privilegedPath, ordinaryUser);
    expectRefused(true, EPERM);
    const auto client = accept(listening);
    ASSERT_TRUE(client);
    char byte = 0;
    EXPECT_EQ(recv(client.get(), &byte, 1, 0), 0);
}

TEST_F(WellKnownSocketTest, ALinkInThePrivilegedPlaceIsNotFollowed) {
    const auto listening = listenAt(folder / "elsewhere");
    std::filesystem::create_symlink(folder / "elsewhere", privilegedPath);
    expectRefused(true, EPERM);
    EXPECT_FALSE(accept(listening));
}

TEST_F(WellKnownSocketTest, ThePrivilegedPlaceDoesNotDependOnTheEnvironment) {
    const auto listening = listenAt(folder / (name + ".sock"));
    expectRefused(true, ENOENT);
    EXPECT_FALSE(accept(listening));
}

TEST_F(WellKnownSocketTest, AnOrdinaryServiceMayBeAnyUsers) {
    const auto path = folder / (name + ".sock");
    const auto listening = listenAt(path, ordinaryUser);
    ASSERT_EQ(chown(path.c_str(), ordinaryUser, ordinaryUser), 0);
    const auto stream = connect(false);
    ASSERT_TRUE(stream);
    EXPECT_EQ((*stream)->peer()->userIdentifier, std::int64_t{ordinaryUser});
}

TEST_F(WellKnownSocketTest, ANameThatIsTooLongIsRefusedAndNamed) {
    const std::string longName(200, 'x');
    const auto stream = wellKnownServiceEndpoint(longName, false)->connect();
    ASSERT_FALSE(stream);
    EXPECT_EQ(stream.error()->code(), ENAMETOOLONG);
    EXPECT_NE(stream.error()->localizedDescription().find(longName), std::string::npos);
}

TEST_F(WellKnownSocketTest, AListenerThatAcceptsNobodyIsNotWaitedForLongerThanTheLimit) {
    const auto path = folder / "full";
    const auto listening = listenAt(path);
    const auto clients = fillBacklog(path);
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connectWithin(shortTime, socket, addressOf(path)), ETIMEDOUT);
}

TEST_F(WellKnownSocketTest, SignalsDoNotProlongTheWait) {
    const auto path = folder / "full";
    const auto listening = listenAt(path);
    const auto clients = fillBacklog(path);
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    itimerval often{{0, 20000}, {0, 20000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
    EXPECT_EQ(connectWithin(shortTime, socket, addressOf(path)), ETIMEDOUT);
    often = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
}

TEST_F(WellKnownSocketTest, AListenerThatAcceptsLateIsWaitedFor) {
    const auto path = folder / "full";
    const auto listening = listenAt(path);
    const auto clients = fillBacklog(path);
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    auto code = std::async(std::launch::async, [&] {
        return connectWithin(std::chrono::seconds(30), socket, addressOf(path));
    });
    EXPECT_EQ(code.wait_for(shortTime), std::future_status::timeout);
    EXPECT_TRUE(accept(listening));
    EXPECT_EQ(code.get(), 0);
}

}  // namespace
}  // namespace morvane
