// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <sys/socket.h>

#include <atomic>
#include <optional>
#include <thread>

#include "XpcTestSupport.h"

/// How a connection ends: invalidated at any moment, or let go of.
namespace morvane {
namespace {

/// A real stream, which reports that it has been cleared up.
class CountedStream final : public LinuxStreamSocket {
  public:
    CountedStream(FileDescriptor socket, std::atomic<int>& finished)
        : LinuxStreamSocket(std::move(socket)), finished_(finished) {}
    void finish() override { ++finished_; }

  private:
    std::atomic<int>& finished_;
};

/// Real streams to nobody who would answer, each made when the test lets it.
class SilentEndpoint final : public ServiceEndpoint {
  public:
    std::function<void()> whileConnecting;
    std::atomic<int> made = 0;
    std::atomic<int> finished = 0;
    /// The other end of the last one.
    FileDescriptor peer;

    Result<std::shared_ptr<StreamSocket>> connect() override {
        int pair[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        peer = FileDescriptor(pair[1]);
        ++made;
        whileConnecting();
        return std::make_shared<CountedStream>(FileDescriptor(pair[0]), finished);
    }
};

struct SilentService {
    SilentService() {
        auto made = std::make_unique<SilentEndpoint>();
        endpoint = made.get();
        connection = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("silent", std::move(made)));
        connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setInvalidationHandler([this] { invalidated.set_value(); });
        connection->resume();
    }
    /// Returns the code with which the request ends.
    std::future<std::int64_t> send() {
        const auto code = std::make_shared<std::promise<std::int64_t>>();
        connection
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [code](NSErrorRef error) { code->set_value(error->code()); })
            ->echo("x", [code](auto, auto) { code->set_value(0); });
        return code->get_future();
    }

    SilentEndpoint* endpoint;
    std::shared_ptr<NSXPCConnection> connection;
    std::promise<void> invalidated;
};

TEST(NSXPCConnection, InvalidatedWhileAnotherThreadConnectsItEndsItsRequestsAndItsStream) {
    SilentService service;
    std::promise<void> connecting;
    std::promise<void> mayGoOn;
    service.endpoint->whileConnecting = [&] {
        connecting.set_value();
        await(mayGoOn.get_future());
    };
    std::future<std::int64_t> first;
    std::thread sender([&] { first = service.send(); });
    await(connecting.get_future());
    auto second = service.send();
    service.connection->invalidate();
    auto third = service.send();
    mayGoOn.set_value();
    sender.join();
    EXPECT_EQ(await(std::move(first)), NSXPCConnectionInvalid);
    EXPECT_EQ(await(std::move(second)), NSXPCConnectionInvalid);
    EXPECT_EQ(await(std::move(third)), NSXPCConnectionInvalid);
    await(service.invalidated.get_future());
    char byte = 0;
    EXPECT_EQ(recv(service.endpoint->peer.get(), &byte, 1, 0), 0);
}

TEST(NSXPCConnection, InvalidatedAtAnyMomentWhileItConnectsEndsEveryRequestAndStream) {
    for (int round = 0; round < 300; ++round) {
        std::optional<SilentService> service(std::in_place);
        service->endpoint->whileConnecting = [] { std::this_thread::yield(); };
        std::array<std::future<std::int64_t>, 3> ends;
        std::atomic<bool> go = false;
        std::vector<std::thread> senders;
        for (auto& end : ends) {
            senders.emplace_back([&] {
                while (!go) {
                }
                end = service->send();
            });
        }
        go = true;
        for (int i = 0; i < round % 30; ++i)
            std::this_thread::yield();
        service->connection->invalidate();
        for (auto& sender : senders)
            sender.join();
        for (auto& end : ends)
            EXPECT_NE(await(std::move(end)), 0);
        await(service->invalidated.get_future());
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (service->endpoint->finished != service->endpoint->made) {
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            std::this_thread::yield();
        }
    }
}

/// A stream whose sends all fail.
class DumbStream final : public FakeStreamSocket {
  public:
    using FakeStreamSocket::FakeStreamSocket;
    std::optional<std::size_t> send(std::span<const Bytes>) override { return std::nullopt; }
};

class DumbEndpoint final : public ServiceEndpoint {
  public:
    Result<std::shared_ptr<StreamSocket>> connect() override {
        return std::make_shared<DumbStream>(std::make_shared<FakeStreamSocket::Pipe>(),
                                            std::make_shared<FakeStreamSocket::Pipe>());
    }
};

TEST(NSXPCConnection, WhereNothingCanBeSentEachRequestEndsAndThenTheConnection) {
    const auto connection = std::make_shared<NSXPCConnection>(
        std::make_shared<NSXPCConnection::Core>("dumb", std::make_unique<DumbEndpoint>()));
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    std::promise<void> invalidated;
    connection->setInvalidationHandler([&] { invalidated.set_value(); });
    connection->resume();
    for (unsigned i = 0; i < limits::crashesWithoutAnswer; ++i) {
        std::promise<std::int64_t> code;
        connection
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [&](NSErrorRef error) { code.set_value(error->code()); })
            ->echo("x", [](auto, auto) {});
        EXPECT_EQ(await(code.get_future()), NSXPCConnectionInterrupted);
    }
    await(invalidated.get_future());
}

/// Reports that it is gone.
std::shared_ptr<void> tokenThatReports(std::promise<void>& gone) {
    return std::shared_ptr<void>(nullptr, [&](void*) { gone.set_value(); });
}

TEST(NSXPCConnection, LettingGoOfItEndsItsStreamAndRunsNoHandler) {
    EchoPair pair;
    pair.client->resume();
    await(pair.echo("x"));
    std::promise<void> streamEnded;
    pair.servers.front()->setInvalidationHandler([&] { streamEnded.set_value(); });
    bool ran = false;
    std::promise<void> handlerGone;
    pair.client->setInvalidationHandler(
        [&ran, token = tokenThatReports(handlerGone)] { ran = true; });
    pair.client.reset();
    await(streamEnded.get_future());
    await(handlerGone.get_future());
    EXPECT_FALSE(ran);
    EXPECT_EQ(pair.interruptions, 0);
    pair.client = NSXPCConnection::initWithServiceName("unused");
    pair.invalidated.set_value();
}

TEST(NSXPCConnection, InvalidatedAndThenLetGoOfItRunsItsHandler) {
    EchoPair pair;
    pair.client->resume();
    await(pair.echo("x"));
    pair.client->invalidate();
    pair.client = NSXPCConnection::initWithServiceName("unused");
    EXPECT_EQ(pair.invalidatedFuture.wait_for(watchdog), std::future_status::ready);
}

TEST(NSXPCConnection, ARequestThatIsUnderWayKeepsItsConnection) {
    EchoPair pair;
    std::promise<NSXPCReply<std::string, NSErrorRef>> asked;
    pair.service->onEcho = [&](auto, auto reply) { asked.set_value(std::move(reply)); };
    pair.client->resume();
    std::promise<void> streamEnded;
    auto outcome = pair.echo("x");
    auto reply = await(asked.get_future());
    pair.servers.front()->setInvalidationHandler([&] { streamEnded.set_value(); });
    const std::weak_ptr<NSXPCConnection> weak = pair.client;
    pair.client = NSXPCConnection::initWithServiceName("unused");
    EXPECT_FALSE(weak.expired());
    reply("late", nullptr);
    EXPECT_EQ(await(std::move(outcome)).text, "late");
    await(streamEnded.get_future());
    pair.invalidated.set_value();
}

TEST(NSXPCConnection, MayBeLetGoOfInItsOwnReply) {
    EchoPair pair;
    pair.client->resume();
    std::promise<void> streamEnded;
    pair.service->onEcho = [&](std::string text, auto reply) {
        pair.servers.front()->setInvalidationHandler([&] { streamEnded.set_value(); });
        reply(std::move(text), nullptr);
    };
    pair.client->remoteObjectProxy<Echo>()->echo("x", [&](auto, auto) { pair.client.reset(); });
    await(streamEnded.get_future());
    pair.client = NSXPCConnection::initWithServiceName("unused");
    pair.invalidated.set_value();
}

TEST(NSXPCConnection, LetGoOfBeforeItIsResumedItEndsWhatWaitsForThat) {
    EchoPair pair;
    auto waiting = pair.echo("x");
    pair.client = NSXPCConnection::initWithServiceName("unused");
    EXPECT_EQ(await(std::move(waiting)).code, NSXPCConnectionInvalid);
    pair.invalidated.set_value();
}

}  // namespace
}  // namespace morvane
