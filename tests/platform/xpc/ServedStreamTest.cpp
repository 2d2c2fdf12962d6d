// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/xpc/ClientAccount.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/xpc/RawRequests.h"
#include "platform/xpc/XpcTestSupport.h"

namespace morvane {
namespace {

std::shared_ptr<ClientAccount> accountWithPlaces(std::size_t places) {
    return std::make_shared<ClientAccount>(ClientAccount::Limits{SIZE_MAX, places});
}

/// A service's connection and its client's, over a socket.
class ServedClient {
  public:
    explicit ServedClient(std::shared_ptr<EchoService> service,
                          std::shared_ptr<ClientAccount> account = accountWithPlaces(4),
                          NSXPCConnection::Admission admission = {}) {
        int pair[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
            std::abort();
        const auto served = std::make_shared<NSXPCConnection::Core>(
            "client", std::make_shared<LinuxStreamSocket>(FileDescriptor(pair[0])));
        served->account = account;
        served->requests.memory = ClientAccount::memoryOf(account);
        served->requests.decoding.bytes = limits::clientMessageBytes;
        served->requests.decoding.objects = limits::clientMessageObjects;
        server = std::make_shared<NSXPCConnection>(served);
        server->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        server->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        server->setExportedObject<Echo>(std::move(service));
        server->setAdmission(std::move(admission));
        server->setInvalidationHandler([this, ended = ended] {
            if (onEnd)
                onEnd();
            ended->set_value();
        });
        server->resume();
        stream = std::make_shared<LinuxStreamSocket>(FileDescriptor(pair[1]));
    }
    ~ServedClient() {
        server->invalidate();
        stream->shutdown();
        EXPECT_EQ(ended->get_future().wait_for(watchdog), std::future_status::ready);
    }

    void connect() {
        client =
            std::make_shared<NSXPCConnection>(std::make_shared<NSXPCConnection::Core>("s", stream));
        client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        client->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        client->setExportedObject<Echo>(std::make_shared<EchoService>());
        client->resume();
    }
    static std::future<std::string> echo(const std::shared_ptr<NSXPCConnection>& connection,
                                         const std::string& text) {
        const auto promise = std::make_shared<std::promise<std::string>>();
        connection
            ->remoteObjectProxyWithErrorHandler<Echo>(
                [promise](NSErrorRef error) { promise->set_value(error->localizedDescription()); })
            ->echo(text, [promise](std::string reply, NSErrorRef error) {
                promise->set_value(error ? error->localizedDescription() : std::move(reply));
            });
        return promise->get_future();
    }
    std::future<std::string> echo(const std::string& text) { return echo(client, text); }

    /// Called by the service's end once the client has left.
    std::function<void()> onEnd;
    std::shared_ptr<std::promise<void>> ended = std::make_shared<std::promise<void>>();
    std::shared_ptr<NSXPCConnection> server;
    std::shared_ptr<NSXPCConnection> client;
    std::shared_ptr<LinuxStreamSocket> stream;
};

/// Answers at once, but for what begins with "hang", which waits until it is let go.
class HangingService final : public EchoService {
  public:
    HangingService() {
        onEcho = [this](std::string text, const NSXPCReply<std::string, NSErrorRef>& reply) {
            ++begun;
            if (text == "waits" && !gone)
                ++early;
            if (text.starts_with("hang"))
                free.wait();
            reply(std::move(text), nullptr);
        };
    }
    ~HangingService() override { letGo(); }
    void letGo() {
        if (!gone.exchange(true))
            promise.set_value();
    }

    std::atomic<int> begun = 0;
    /// How many "waits" were begun before anything was let go.
    std::atomic<int> early = 0;
    std::promise<void> promise;
    std::shared_future<void> free = promise.get_future().share();
    std::atomic<bool> gone = false;
};

std::size_t threadsOfThisProcess() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}));
}

/// Waits for it, and says what it was at last.
std::size_t threadsOnceAtMost(std::size_t most) {
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (threadsOfThisProcess() > most && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    return threadsOfThisProcess();
}

TEST(ServedStream, ARequestThatHangsHoldsUpNoneOfThoseBehindIt) {
    const auto service = std::make_shared<HangingService>();
    ServedClient pair(service);
    pair.connect();
    auto hung = pair.echo("hang");
    EXPECT_EQ(await(pair.echo("a")), "a");
    auto second = pair.echo("hang too");
    EXPECT_EQ(await(pair.echo("b")), "b");
    service->letGo();
    EXPECT_EQ(await(std::move(hung)), "hang");
    EXPECT_EQ(await(std::move(second)), "hang too");
    EXPECT_EQ(await(pair.echo("c")), "c");
}

TEST(ServedStream, AnAnswerOfTheClientsComesThroughWhileARequestHangs) {
    const auto service = std::make_shared<HangingService>();
    ServedClient pair(service);
    pair.connect();
    auto hung = pair.echo("hang");
    EXPECT_EQ(await(ServedClient::echo(pair.server, "question")), "question");
    service->letGo();
    await(std::move(hung));
}

TEST(ServedStream, TheEndOfAClientIsNoticedWhileItsRequestsHangInAllItsPlaces) {
    const auto service = std::make_shared<HangingService>();
    {
        ServedClient pair(service, accountWithPlaces(1));
        pair.connect();
        pair.echo("hang");
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (service->begun == 0 && std::chrono::steady_clock::now() < end)
            std::this_thread::yield();
        pair.client->invalidate();
        // Its end, which the destructor waits for, comes before the request's.
    }
    service->letGo();
}

TEST(ServedStream, WhatHangsCostsThePlacesOfItsOwnUserOnly) {
    const auto service = std::make_shared<HangingService>();
    const auto account = accountWithPlaces(2);
    ServedClient hanging(service, account);
    ServedClient same(service, account);
    ServedClient other(service, accountWithPlaces(2));
    for (auto* each : {&hanging, &same, &other})
        each->connect();
    auto first = hanging.echo("hang");
    auto second = hanging.echo("hang");
    auto third = hanging.echo("hang");
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (service->begun < 2 && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    auto waiting = same.echo("waits");
    // Time in which what waits would be served, if anybody did.
    for (int i = 0; i != 1000; ++i)
        await(other.echo("goes on"));
    service->letGo();
    EXPECT_EQ(await(std::move(waiting)), "waits");
    EXPECT_EQ(service->early, 0);
    await(std::move(first));
    await(std::move(second));
    await(std::move(third));
}

TEST(ServedStream, ClientsThatSayNothingCostNoThread) {
    const auto service = std::make_shared<EchoService>();
    const auto before = threadsOfThisProcess();
    std::vector<std::unique_ptr<ServedClient>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<ServedClient>(service));
        const auto request = echoRequest("x");
        const StreamSocket::Bytes bytes(request);
        clients.back()->stream->send({&bytes, 1});
        FrameReader reader(*clients.back()->stream);
        EXPECT_TRUE(reader.next());
    }
    EXPECT_LE(threadsOnceAtMost(before + 10), before + 10);
}

TEST(ServedStream, HalfAFrameCostsNoThread) {
    const auto service = std::make_shared<EchoService>();
    const auto before = threadsOfThisProcess();
    std::vector<std::unique_ptr<ServedClient>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<ServedClient>(service));
        // Has been read once what is before it is answered.
        const auto request = echoRequest("x");
        const StreamSocket::Bytes bytes[] = {request, StreamSocket::Bytes(request).first(10)};
        clients.back()->stream->send(bytes);
        FrameReader reader(*clients.back()->stream);
        EXPECT_TRUE(reader.next());
    }
    EXPECT_LE(threadsOnceAtMost(before + 10), before + 10);
    const auto request = echoRequest("x");
    const auto rest = StreamSocket::Bytes(request).subspan(10);
    clients.front()->stream->send({&rest, 1});
    FrameReader reader(*clients.front()->stream);
    EXPECT_TRUE(reader.next());
}

TEST(ServedStream, ClientsThatTakeNoRepliesCostNoThread) {
    const auto service = std::make_shared<EchoService>();
    const std::string text(std::size_t{4} << 20, 'x');
    service->onEcho = [&](auto, const auto& reply) { reply(text, nullptr); };
    const auto before = threadsOfThisProcess();
    std::vector<std::unique_ptr<ServedClient>> clients;
    for (int i = 0; i < 50; ++i) {
        clients.push_back(std::make_unique<ServedClient>(service));
        const auto request = echoRequest("x");
        const StreamSocket::Bytes bytes(request);
        auto& stream = *clients.back()->stream;
        stream.send({&bytes, 1});
        std::array<std::uint8_t, 1> first{};
        ASSERT_EQ(stream.receive(first, std::chrono::steady_clock::now() + watchdog), 1U);
        EXPECT_EQ(first.front(), 'M');
    }
    EXPECT_LE(threadsOnceAtMost(before + 10), before + 10);
    // Each has its reply as soon as it takes it.
    for (const auto& client : clients) {
        std::vector<std::uint8_t> into(std::size_t{1} << 20);
        std::size_t received = 1;
        while (received < text.size()) {
            const auto more =
                client->stream->receive(into, std::chrono::steady_clock::now() + watchdog);
            ASSERT_GT(more, 0U);
            received += more;
        }
    }
}

TEST(ServedStream, ClientsThatLeaveWhileTheirUsersPlacesAreTakenCostOneThreadTogether) {
    const auto service = std::make_shared<HangingService>();
    const auto account = accountWithPlaces(1);
    ServedClient hanging(service, account);
    hanging.connect();
    auto hung = hanging.echo("hang");
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (service->begun == 0 && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    const auto before = threadsOfThisProcess();
    std::promise<void> begun;
    std::promise<void> goOn;
    const auto going = goOn.get_future().share();
    std::atomic<int> ends = 0;
    {
        std::vector<std::unique_ptr<ServedClient>> clients;
        for (int i = 0; i < 100; ++i) {
            clients.push_back(std::make_unique<ServedClient>(service, account));
            clients.back()->onEnd = [&begun, &ends, going] {
                if (ends++ == 0)
                    begun.set_value();
                going.wait();
            };
        }
        for (const auto& client : clients)
            client->stream->shutdown();
        await(begun.get_future());
        // The clock has looked at each of them when it comes to this.
        std::promise<void> looked;
        runAt(std::chrono::steady_clock::now() + 4 * limits::patience, [&] { looked.set_value(); });
        await(looked.get_future());
        EXPECT_EQ(ends, 1);
        EXPECT_LE(threadsOnceAtMost(before + 10), before + 10);
        goOn.set_value();
    }
    EXPECT_EQ(ends, 100);
    service->letGo();
    await(std::move(hung));
}

TEST(ServedStream, WhileARightIsAskedForAnswersComeThroughAndRequestsKeepTheirOrder) {
    const auto service = std::make_shared<EchoService>();
    std::vector<std::string> order;
    service->onEcho = [&](std::string text, const NSXPCReply<std::string, NSErrorRef>& reply) {
        order.push_back(text);
        reply(std::move(text), nullptr);
    };
    std::promise<void> isAsked;
    std::promise<void> answer;
    std::atomic<int> questions = 0;
    ServedClient pair(service, accountWithPlaces(4), [&](std::string_view) {
        if (questions++ == 0) {
            isAsked.set_value();
            answer.get_future().wait();
        }
        return NSErrorRef();
    });
    pair.connect();
    auto first = pair.echo("first");
    await(isAsked.get_future());
    EXPECT_EQ(await(ServedClient::echo(pair.server, "question")), "question");
    auto second = pair.echo("second");
    answer.set_value();
    EXPECT_EQ(await(std::move(first)), "first");
    EXPECT_EQ(await(std::move(second)), "second");
    EXPECT_EQ(order, (std::vector<std::string>{"first", "second"}));
}

bool isSoonWritable(LinuxStreamSocket& stream) {
    const auto isWritable = std::make_shared<std::promise<void>>();
    stream.whenWritable([isWritable] { isWritable->set_value(); });
    return isWritable->get_future().wait_for(std::chrono::milliseconds(500)) ==
           std::future_status::ready;
}

TEST(ServedStream, AClientThatTakesNoRepliesIsNotReadAnyFurther) {
    ServedClient pair(std::make_shared<EchoService>());
    const auto request = echoRequest(std::string(8000, 'x'));
    constexpr std::size_t most = std::size_t{64} << 20;
    std::size_t sent = 0;
    std::size_t at = 0;
    while (sent < most) {
        const auto rest = StreamSocket::Bytes(request).subspan(at);
        const auto count = pair.stream->send({&rest, 1});
        ASSERT_TRUE(count);
        sent += *count;
        at = (at + *count) % request.size();
        if (*count == 0 && !isSoonWritable(*pair.stream))
            break;
    }
    EXPECT_LT(sent, most);
}

TEST(ServedStream, WhatIsDecodedCountsAgainstItsUserUntilItIsAnswered) {
    const auto service = std::make_shared<EchoService>();
    std::vector<NSXPCReply<std::string, NSErrorRef>> kept;
    service->onEcho = [&](const std::string&, auto reply) { kept.push_back(std::move(reply)); };
    constexpr std::size_t memory = std::size_t{1} << 20;
    const auto account = std::make_shared<ClientAccount>(ClientAccount::Limits{memory, 4});
    ServedClient pair(service, account);
    pair.connect();
    // Ten thousand letters may be twenty thousand objects until they are looked at.
    EXPECT_EQ(await(pair.echo(std::string(10000, 'x'))),
              "The service refused the request: Too many large requests are being "
              "handled; ask again later.");
    auto answer = pair.echo("x");
    // The one behind it is refused once it is decoded.
    await(pair.echo(std::string(10000, 'x')));
    EXPECT_FALSE(account->memory.take(memory));
    kept.front()("y", nullptr);
    kept.clear();
    EXPECT_EQ(await(std::move(answer)), "y");
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (!account->memory.take(memory) && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_FALSE(account->memory.take(1));
}

}  // namespace
}  // namespace morvane
