// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "TemporaryFolder.h"
#include "XpcTestSupport.h"

namespace morvane {
namespace {

/// A well-known socket, and a service process that was given it as a service manager does.
class Activated {
  public:
    Activated() {
        setenv("MORVANE_RUNTIME_DIR", folder_.c_str(), 1);
        const auto path = folder_ + "/echo.sock";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        socket_ = FileDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(socket_.get(), 8), 0);
    }

    /// Starts the service; it leaves after a second without clients.
    void start(const char* how = "--activated") {
        child_ = fork();
        if (child_ != 0)
            return;
        if (socket_.get() != 3)
            dup2(socket_.get(), 3);
        else
            fcntl(3, F_SETFD, 0);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        const char* const program = MORVANE_TEST_SERVICES "/xpc_test_service";
        execl(program, program, how, nullptr);
        _exit(127);
    }
    int waitForEnd() {
        int status = -1;
        waitpid(child_, &status, 0);
        return status;
    }

  private:
    const TemporaryFolder temporary_;
    const std::string folder_ = temporary_.path();
    FileDescriptor socket_;
    pid_t child_ = -1;
};

std::string echo(NSXPCConnection& connection, const std::string& text) {
    std::promise<std::string> outcome;
    connection
        .remoteObjectProxyWithErrorHandler<Echo>(
            [&](NSErrorRef error) { outcome.set_value("error " + std::to_string(error->code())); })
        ->echo(text, [&](std::string reply, NSErrorRef) { outcome.set_value(std::move(reply)); });
    return await(outcome.get_future());
}

std::shared_ptr<NSXPCConnection> connectTo(const char* name) {
    auto connection = NSXPCConnection::initWithMachServiceName(name, 0);
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    connection->resume();
    return connection;
}

TEST(NSXPCListener, ServesSeveralClientsAndLeavesWhenThereHaveBeenNoneForAWhile) {
    Activated service;
    service.start();
    {
        const auto one = connectTo("echo");
        const auto other = connectTo("echo");
        EXPECT_EQ(echo(*one, "one"), "one");
        EXPECT_EQ(echo(*other, "other"), "other");
    }
    EXPECT_EQ(service.waitForEnd(), 0);
}

TEST(NSXPCListener, AClientConnectsAgainWithItsNextRequest) {
    Activated service;
    service.start();
    const auto connection = connectTo("echo");
    const auto first = echo(*connection, "pid");
    EXPECT_EQ(echo(*connection, "die"), "error " + std::to_string(NSXPCConnectionInterrupted));
    service.waitForEnd();
    service.start();
    const auto second = echo(*connection, "pid");
    EXPECT_NE(second, first);
    EXPECT_FALSE(second.starts_with("error"));
    connection->invalidate();
    EXPECT_EQ(service.waitForEnd(), 0);
}

TEST(NSXPCListener, TellsSinceWhenAClientIsThereIfItHoldsItsProcess) {
    for (const bool holds : {false, true}) {
        Activated service;
        service.start(holds ? "--holding" : "--activated");
        const auto expected = holds ? startTimeOfProcess(getpid()) : 0;
        EXPECT_EQ(echo(*connectTo("echo"), "since"), std::to_string(expected));
        EXPECT_EQ(service.waitForEnd(), 0);
    }
}

TEST(NSXPCListener, ASocketThatIsNotThereMakesTheConnectionInvalid) {
    const Activated service;
    EXPECT_EQ(echo(*connectTo("missing"), "x"), "error " + std::to_string(NSXPCConnectionInvalid));
}

TEST(NSXPCListener, IsNotToBeHadInAProcessThatNobodyActivated) {
    NSErrorRef error;
    EXPECT_FALSE(NSXPCListener::activatedListener(&error));
    EXPECT_TRUE(error);
    NSErrorRef other;
    EXPECT_FALSE(NSXPCListener::serviceListener(&other));
    EXPECT_TRUE(other);
}

}  // namespace
}  // namespace morvane
