// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "RawRequests.h"
#include "TemporaryFolder.h"
#include "XpcTestSupport.h"

namespace morvane {
namespace {

/// A connection to a real process.
class Client {
  public:
    explicit Client(const char* service) {
        setenv("MORVANE_LIBEXEC_DIR", MORVANE_TEST_SERVICES, 1);
        connection = NSXPCConnection::initWithServiceName(service);
        connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setInterruptionHandler([this] { ++interruptions; });
        connection->setInvalidationHandler([this] { invalidated.set_value(); });
        connection->resume();
    }
    ~Client() {
        connection->invalidate();
        await(invalidated.get_future());
    }

    EchoPair::Outcome echo(const std::string& text) {
        std::promise<EchoPair::Outcome> outcome;
        connection
            ->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef error) {
                outcome.set_value({{}, error->code(), error});
            })
            ->echo(text, [&](std::string reply, NSErrorRef) {
                outcome.set_value({std::move(reply), 0, nullptr});
            });
        return await(outcome.get_future());
    }

    std::shared_ptr<NSXPCConnection> connection;
    std::atomic<int> interruptions = 0;
    std::promise<void> invalidated;
};

TEST(ServiceProcess, AnswersFromAnotherProcess) {
    Client client("xpc_test_service");
    const auto pid = client.echo("pid").text;
    EXPECT_NE(pid, std::to_string(getpid()));
    EXPECT_EQ(pid, std::to_string(client.connection->processIdentifier().value()));
    EXPECT_EQ(client.connection->effectiveUserIdentifier(), getuid());
}

/// Those beyond the standard streams that a program which this process starts would get.
std::vector<std::string> inheritedDescriptors(const std::string& process) {
    std::vector<std::string> inherited;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + process + "/fdinfo")) {
        std::ifstream info(entry.path());
        std::string word;
        std::string flags;
        while (info >> word && word != "flags:") {
        }
        if (!(info >> flags))
            continue;  // closed meanwhile
        const auto number = entry.path().filename().string();
        if (std::stoi(number) > STDERR_FILENO && (std::stoul(flags, nullptr, 8) & O_CLOEXEC) == 0) {
            std::error_code closed;
            const auto what =
                std::filesystem::read_symlink("/proc/" + process + "/fd/" + number, closed);
            inherited.push_back(number + ": " + what.native());
        }
    }
    return inherited;
}

TEST(ServiceProcess, LeavesNoDescriptorToProgramsThatEitherEndStarts) {
    const auto before = inheritedDescriptors("self");
    Client client("xpc_test_service");
    const auto [service, code, error] = client.echo("pid");
    ASSERT_FALSE(error) << error->localizedDescription();
    EXPECT_EQ(inheritedDescriptors("self"), before);
    EXPECT_EQ(inheritedDescriptors(service), std::vector<std::string>{});
}

TEST(ServiceProcess, StaysForTheNextRequest) {
    Client client("xpc_test_service");
    EXPECT_EQ(client.echo("pid").text, client.echo("pid").text);
}

TEST(ServiceProcess, CarriesFiveMegabytesBothWays) {
    Client client("xpc_test_service");
    NSData data(std::size_t{5} << 20);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<std::uint8_t>(i * 31);
    std::promise<NSData> back;
    client.connection->remoteObjectProxy<Echo>()->echoData(
        data, [&](NSData reply) { back.set_value(std::move(reply)); });
    EXPECT_EQ(await(back.get_future()), data);
}

TEST(ServiceProcess, ThatIsKilledInterruptsOnceAndIsStartedAgainByTheNextRequest) {
    Client client("xpc_test_service");
    const auto first = client.echo("pid").text;
    EXPECT_EQ(client.echo("die").code, NSXPCConnectionInterrupted);
    const auto second = client.echo("pid");
    EXPECT_EQ(second.code, 0);
    EXPECT_NE(second.text, first);
    EXPECT_EQ(client.interruptions, 1);
}

TEST(ServiceProcess, ThatIsNotThereMakesTheConnectionInvalidAndNamesTheProgram) {
    Client client("no_such_service");
    const auto outcome = client.echo("x");
    EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
    const auto& reason = std::get<NSErrorRef>(outcome.error->userInfo().at(NSUnderlyingErrorKey));
    EXPECT_NE(reason->localizedDescription().find("no_such_service"), std::string::npos);
    EXPECT_EQ(client.interruptions, 0);
}

/// A service whose host is this test.
class Started {
  public:
    explicit Started(const std::vector<std::string>& environment = {}) {
        int pair[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        host = FileDescriptor(pair[0]);
        const FileDescriptor service(pair[1]);
        const char* const program = MORVANE_TEST_SERVICES "/xpc_test_service";
        std::vector<std::string> all{"MORVANE_SERVICE_STREAM=1"};
        all.insert(all.end(), environment.begin(), environment.end());
        std::vector<char*> variables;
        for (auto& variable : all)
            variables.push_back(variable.data());
        variables.push_back(nullptr);
        child_ = fork();
        if (child_ != 0)
            return;
        if (service.get() == 3)
            fcntl(3, F_SETFD, 0);
        else
            dup2(service.get(), 3);
        // What it says about its end is not the test's.
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        char* const arguments[] = {const_cast<char*>(program), nullptr};
        execve(program, arguments, variables.data());
        _exit(127);
    }
    ~Started() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;

    /// False if the service has ended.
    bool send(const std::string& text) const {
        const auto request = echoRequest(text);
        return ::send(host.get(), request.data(), request.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(request.size());
    }
    bool answers() const {
        std::uint8_t byte = 0;
        return recv(host.get(), &byte, 1, 0) == 1;
    }
    bool ends() const {
        const FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, child_, 0)));
        pollfd poll{process.get(), POLLIN, 0};
        constexpr auto time = std::chrono::milliseconds(watchdog).count();
        return ::poll(&poll, 1, static_cast<int>(time)) == 1;
    }

    FileDescriptor host;

  private:
    pid_t child_ = -1;
};

TEST(ServiceProcess, LeavesWithItsHostThatSaysNothing) {
    Started service;
    ASSERT_TRUE(service.send("x") && service.answers());
    service.host = {};
    EXPECT_TRUE(service.ends());
}

TEST(ServiceProcess, LeavesWithItsHostAlthoughItsRequestsHang) {
    Started service;
    for (int i = 0; i != 3; ++i)
        ASSERT_TRUE(service.send("hang"));
    service.host = {};
    EXPECT_TRUE(service.ends());
}

#ifdef MORVANE_FAILING_CALLS
/// The N-th call of that kind fails in it; `forGood`: all that follow as well.
std::vector<std::string> failing(const char* call, int number, bool forGood,
                                 const std::string& mark) {
    return {std::string("LD_PRELOAD=") + MORVANE_FAILING_CALLS,
            std::string("FAILING_CALL=") + call,
            "FAILING_AT=" + std::to_string(number),
            std::string("FAILING_FOR_GOOD=") + (forGood ? "1" : "0"),
            "FAILING_PROGRAM=xpc_test_service",
            "FAILING_MARK=" + mark};
}

void expectToLeaveWhicheverFails(const char* call, bool forGood) {
    const TemporaryFolder folder;
    for (int number = 1;; ++number) {
        const auto mark = folder.path() / std::to_string(number);
        Started service(failing(call, number, forGood, mark));
        if (service.send("x"))
            service.answers();  // or ends
        service.host = {};
        ASSERT_TRUE(service.ends()) << call << " " << number;
        if (!std::filesystem::exists(mark)) {
            EXPECT_GT(number, 1) << call << " was never called";
            break;
        }
    }
}

TEST(ServiceProcess, LeavesWithItsHostWhateverFails) {
    for (const char* call : {"malloc", "pthread_create", "epoll_wait", "recvmsg", "send"}) {
        expectToLeaveWhicheverFails(call, false);
        expectToLeaveWhicheverFails(call, true);
    }
}
#endif

TEST(LinuxStreamSocket, EndsWhenThePeerSendsADescriptor) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    LinuxStreamSocket stream{FileDescriptor(pair[0])};
    const FileDescriptor peer(pair[1]);
    char byte = 'M';
    iovec vector{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    auto* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &pair[1], sizeof(int));
    ASSERT_EQ(sendmsg(peer.get(), &message, MSG_NOSIGNAL), 1);
    std::array<std::uint8_t, 16> into{};
    EXPECT_EQ(stream.receive(into, {}), 0U);
}

}  // namespace
}  // namespace morvane
