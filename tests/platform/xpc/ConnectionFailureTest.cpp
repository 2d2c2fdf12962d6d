// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <atomic>
#include <thread>

#include "RawRequests.h"
#include "ThreadShortage.h"
#include "XpcTestSupport.h"

namespace morvane {
namespace {

/// A service that is a raw stream in the test's hands.
class RawService {
  public:
    RawService()
        : client(std::make_shared<NSXPCConnection>(std::make_shared<NSXPCConnection::Core>(
              "raw", std::make_unique<FakeServiceEndpoint>([this](const auto& far) {
                  stream = far;
                  return true;
              })))) {
        client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        client->resume();
    }
    ~RawService() { client->invalidate(); }

    std::shared_ptr<FakeStreamSocket> stream;
    std::shared_ptr<NSXPCConnection> client;
};

/// A service's connection whose client is a raw stream in the test's hands.
class RawClient {
  public:
    RawClient() {
        auto [near, far] = FakeStreamSocket::pair();
        stream = near;
        server = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("client", far));
        server->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        server->setExportedObject<Echo>(service);
        server->resume();
    }
    ~RawClient() { server->invalidate(); }

    void send(const NSData& bytes) {
        const StreamSocket::Bytes pieces[] = {bytes};
        stream->send(pieces);
    }
    void request(std::string_view selector, const NSData& body) {
        send(requestFrame(selector, body));
    }
    struct Answer {
        FrameKind kind;
        std::string text;
    };
    std::optional<Answer> answer() {
        FrameReader reader(*stream);
        const auto message = reader.next();
        if (!message)
            return std::nullopt;
        return Answer{message->kind, std::string(message->body.begin(), message->body.end())};
    }

    std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    std::shared_ptr<FakeStreamSocket> stream;
    std::shared_ptr<NSXPCConnection> server;
};

TEST(NSXPCConnection, RefusesASelectorThatTheProtocolDoesNotHave) {
    RawClient client;
    client.request("missing:reply:", archiveOfText("x"));
    const auto answer = client.answer();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, FrameKind::refusal);
    EXPECT_EQ(answer->text, "The peer has no message of that name.");
}

TEST(NSXPCConnection, RefusesARequestThatIsNoArchiveAndStands) {
    RawClient client;
    client.request("echo:reply:", NSData{1, 2, 3});
    EXPECT_EQ(client.answer().value().kind, FrameKind::refusal);
    client.request("echo:reply:", archiveOfText("x"));
    EXPECT_EQ(client.answer().value().kind, FrameKind::reply);
}

TEST(NSXPCConnection, NamesTheArgumentThatWasRefused) {
    RawClient client;
    NSKeyedArchiver coder;
    coder.encodeInt64(5, "0");
    client.request("echo:reply:", coder.finishEncoding());
    const auto answer = client.answer().value();
    EXPECT_EQ(answer.kind, FrameKind::refusal);
    EXPECT_TRUE(answer.text.starts_with("Argument 0 was refused by decoding.")) << answer.text;
}

TEST(NSXPCConnection, RefusesMoreRequestsThanItMayOweAnswersTo) {
    RawClient client;
    std::vector<NSXPCReply<std::string, NSErrorRef>> owed;
    std::promise<void> allAsked;
    client.service->onEcho = [&](auto, auto reply) {
        owed.push_back(std::move(reply));
        if (owed.size() == limits::requestsUnanswered)
            allAsked.set_value();
    };
    for (std::size_t i = 0; i < limits::requestsUnanswered; ++i)
        client.request("echo:reply:", archiveOfText("x"));
    await(allAsked.get_future());
    client.request("echo:reply:", archiveOfText("one too many"));
    const auto refused = client.answer().value();
    EXPECT_EQ(refused.kind, FrameKind::refusal);
    EXPECT_EQ(refused.text,
              "Too many requests wait for their replies; this one was not carried out.");
    EXPECT_EQ(owed.size(), limits::requestsUnanswered);

    owed.front()("now", nullptr);
    EXPECT_EQ(client.answer().value().kind, FrameKind::reply);
    client.service->onEcho = nullptr;
    client.request("echo:reply:", archiveOfText("room again"));
    EXPECT_EQ(client.answer().value().kind, FrameKind::reply);
}

TEST(NSXPCConnection, ClosesTheStreamOfAPeerThatBreaksTheRules) {
    RawClient client;
    client.send(NSData(FrameHeader::size, 0));
    EXPECT_FALSE(client.answer());
}

TEST(NSXPCConnection, IgnoresAReplyToNothing) {
    RawClient client;
    FrameHeader header;
    header.kind = FrameKind::reply;
    header.id = 99;
    const auto bytes = header.bytes();
    client.send(NSData(bytes.begin(), bytes.end()));
    client.request("echo:reply:", archiveOfText("x"));
    EXPECT_EQ(client.answer().value().kind, FrameKind::reply);
}

TEST(NSXPCConnection, AServiceMayCallItsClientWhileRequestsArePending) {
    EchoPair pair;
    pair.client->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    auto answering = std::make_shared<EchoService>();
    answering->onEcho = [](std::string text, auto reply) { reply("client " + text, nullptr); };
    pair.client->setExportedObject<Echo>(answering);
    pair.service->onEcho = [&](std::string text, auto reply) {
        auto& server = *pair.servers.front();
        server.setRemoteObjectInterface(pair.remote);
        server.remoteObjectProxy<Echo>()->echo(
            text, [reply](std::string back, NSErrorRef) { reply("service " + back, nullptr); });
    };
    pair.client->resume();
    std::vector<std::future<EchoPair::Outcome>> outcomes;
    for (int i = 0; i < 50; ++i)
        outcomes.push_back(pair.echo(std::to_string(i)));
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(await(std::move(outcomes[static_cast<std::size_t>(i)])).text,
                  "service client " + std::to_string(i));
    }
}

TEST(NSXPCConnection, ReportsInvalidationOnceAndNothingAfterIt) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> invalidations = 0;
        std::atomic<int> late = 0;
        std::promise<void> reported;
        {
            RawService service;
            service.client->setInterruptionHandler([&] { late += invalidations; });
            service.client->setInvalidationHandler([&] {
                ++invalidations;
                reported.set_value();
            });
            service.client
                ->remoteObjectProxyWithErrorHandler<Echo>(
                    [&](NSErrorRef) { late += invalidations; })
                ->echo("x", [&](auto, auto) { late += invalidations; });
            std::thread ender([&] { service.client->invalidate(); });
            service.stream->shutdown();
            service.client->invalidate();
            ender.join();
            await(reported.get_future());
        }
        EXPECT_EQ(invalidations, 1);
        EXPECT_EQ(late, 0);
    }
}

TEST(NSXPCConnection, AnInterruptedOneIsUsedAgain) {
    EchoPair pair;
    pair.client->resume();
    await(pair.echo("x"));
    pair.service->onEcho = [&](auto, auto) { pair.servers.front()->invalidate(); };
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInterrupted);
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("again")).text, "again");
    EXPECT_EQ(pair.streams, 2);
    EXPECT_EQ(pair.interruptions, 1);
}

TEST(NSXPCConnection, EndedByItsOwnerIsNotSaidToKeepCrashing) {
    EchoPair pair;
    pair.onStream = [](FakeStreamSocket& far) { far.endAfterSending(1); };
    pair.client->resume();
    for (unsigned i = 0; i + 1 < limits::crashesWithoutAnswer; ++i)
        EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInterrupted);
    pair.onStream = nullptr;
    pair.service->onEcho = [&](auto, auto) { pair.client->invalidate(); };
    EXPECT_EQ(await(pair.echo("x")).code, NSXPCConnectionInterrupted);
    pair.invalidatedFuture.wait_for(watchdog);
    const auto outcome = await(pair.echo("x"));
    EXPECT_EQ(outcome.code, NSXPCConnectionInvalid);
    EXPECT_FALSE(outcome.error->userInfo().contains(NSUnderlyingErrorKey));
}

TEST(NSXPCConnection, RequestsBeyondTheLimitOfThoseThatWaitAreRefused) {
    EchoPair pair;
    std::vector<std::future<EchoPair::Outcome>> waiting;
    for (std::size_t i = 0; i < limits::requestsDeferred; ++i)
        waiting.push_back(pair.echo("x"));
    EXPECT_EQ(await(pair.echo("one too many")).code, NSXPCConnectionInvalid);
    pair.client->resume();
    for (auto& outcome : waiting)
        EXPECT_EQ(await(std::move(outcome)).text, "x");
}

TEST(NSXPCConnection, RequestsBeyondTheLimitOfThoseInFlightAreRefused) {
    RawService service;
    const auto proxy = service.client->remoteObjectProxyWithErrorHandler<Echo>([](NSErrorRef) {});
    for (std::size_t i = 0; i < limits::requestsInFlight; ++i)
        proxy->echo("x", [](auto, auto) {});
    std::promise<std::int64_t> refused;
    service.client
        ->remoteObjectProxyWithErrorHandler<Echo>(
            [&](NSErrorRef error) { refused.set_value(error->code()); })
        ->echo("x", [](auto, auto) {});
    EXPECT_EQ(await(refused.get_future()), NSXPCConnectionInvalid);
}

TEST(NSXPCConnection, InvalidateDoesNotWaitForAServiceThatIsSlowToStart) {
    std::promise<void> starting;
    std::promise<void> mayGoOn;
    auto connection = std::make_shared<NSXPCConnection>(std::make_shared<NSXPCConnection::Core>(
        "slow", std::make_unique<FakeServiceEndpoint>([&](const auto&) {
            starting.set_value();
            mayGoOn.get_future().wait();
            return true;
        })));
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    std::promise<void> invalidated;
    connection->setInvalidationHandler([&] { invalidated.set_value(); });
    connection->resume();
    std::promise<std::int64_t> ended;
    std::thread sender([&] {
        connection
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [&](NSErrorRef error) { ended.set_value(error->code()); })
            ->echo("x", [](auto, auto) {});
    });
    await(starting.get_future());
    EXPECT_EQ(connection->processIdentifier(), std::nullopt);
    connection->invalidate();
    mayGoOn.set_value();
    EXPECT_EQ(await(ended.get_future()), NSXPCConnectionInvalid);
    await(invalidated.get_future());
    sender.join();
}

/// A stream that has been read to its end before its connection goes on.
class StreamReadAtOnce final : public FakeStreamSocket {
  public:
    using FakeStreamSocket::FakeStreamSocket;
    void whenReadable(std::function<void()> reading) override {
        std::thread(std::move(reading)).join();
    }
};

class EndpointInvalidatedWhileItConnects final : public ServiceEndpoint {
  public:
    std::weak_ptr<NSXPCConnection> connection;

    Result<std::shared_ptr<StreamSocket>> connect() override {
        connection.lock()->invalidate();
        return std::make_shared<StreamReadAtOnce>(std::make_shared<FakeStreamSocket::Pipe>(),
                                                  std::make_shared<FakeStreamSocket::Pipe>());
    }
};

TEST(NSXPCConnection, ReportsItsInvalidationAfterTheRequestsThatWaitedForItsService) {
    auto made = std::make_unique<EndpointInvalidatedWhileItConnects>();
    auto& endpoint = *made;
    const auto connection = std::make_shared<NSXPCConnection>(
        std::make_shared<NSXPCConnection::Core>("ending", std::move(made)));
    endpoint.connection = connection;
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    std::vector<std::string> told;
    std::promise<void> invalidated;
    connection->setInvalidationHandler([&] {
        told.push_back("invalidation");
        invalidated.set_value();
    });
    const auto proxy = connection->remoteObjectProxyWithErrorHandler<Echo>([&](NSErrorRef error) {
        EXPECT_EQ(error->code(), NSXPCConnectionInvalid);
        told.push_back("request");
    });
    proxy->echo("x", [](auto, auto) {});
    proxy->echo("y", [](auto, auto) {});
    connection->resume();
    await(invalidated.get_future());
    EXPECT_EQ(told, (std::vector<std::string>{"request", "request", "invalidation"}));
}

TEST(NSXPCConnection, AReplyThatCannotBeEncodedEndsItsRequestOnAnyThread) {
    EchoPair pair;
    std::promise<NSXPCReply<std::string, NSErrorRef>> kept;
    pair.service->onEcho = [&](auto, auto reply) { kept.set_value(reply); };
    pair.client->resume();
    auto outcome = pair.echo("x");
    std::thread later([&] { await(kept.get_future())("\xff not text", nullptr); });
    later.join();
    const auto refused = await(std::move(outcome));
    EXPECT_EQ(refused.code, NSXPCConnectionReplyInvalid);
    EXPECT_TRUE(refused.error->localizedDescription().starts_with("The service refused"));
    pair.service->onEcho = nullptr;
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

}  // namespace
}  // namespace morvane
