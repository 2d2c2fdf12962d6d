// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "RawRequests.h"
#include "XpcTestSupport.h"
#include "platform/archive/ArchiveTestModels.h"

namespace morvane {
namespace {

/// A listener in this process, whose clients are raw streams in the test's hands.
class LocalListener {
  public:
    using Stream = std::shared_ptr<FakeStreamSocket>;

    explicit LocalListener(const limits::ClientLimits& limits = {})
        : listener_(std::make_shared<NSXPCListener>(
              std::unique_ptr<StreamListener>(std::make_unique<FakeStreamListener>(clients_)),
              limits)) {
        listener_->setNewConnectionHandler([this](const auto& connection) {
            if (onClient && !onClient())
                return false;
            accountable = connection->accountableUserIdentifier();
            connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
            connection->template setExportedObject<Echo>(service);
            if (onEnd)
                connection->setInvalidationHandler(onEnd);
            connection->resume();
            return true;
        });
        serving_ = std::thread([this] { listener_->run(); });
    }
    ~LocalListener() {
        listener_->invalidate();
        serving_.join();
    }

    /// Asked before a client is served.
    std::function<bool()> onClient;
    /// Of each client that is served from then on.
    std::function<void()> onEnd;
    const std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    /// What the last connection says.
    std::optional<std::int64_t> accountable;
    /// Whether the listener's thread is told that no other can wait in its place.
    void setAlone(bool alone) {
        const std::lock_guard lock(clients_->mutex);
        clients_->alone = alone;
    }

    /// A client of this user's that was answered; null if it was turned away.
    Stream connect(std::int64_t user) { return connectFor(user, user); }
    /// For whom another user answers.
    Stream connectFor(std::int64_t owner, std::int64_t user) {
        auto stream = ask("x", owner, user);
        return FrameReader(*stream).next() ? stream : nullptr;
    }
    /// A client that has sent this and has not looked for an answer.
    Stream ask(const std::string& text, std::int64_t owner, std::int64_t user) {
        auto stream = clients_->connect(user, owner);
        const auto request = echoRequest(text);
        const StreamSocket::Bytes pieces[] = {request};
        stream->send(pieces);
        return stream;
    }
    std::vector<Stream> connect(std::int64_t user, std::size_t count) {
        std::vector<Stream> streams;
        for (std::size_t i = 0; i < count; ++i) {
            streams.push_back(connect(user));
            EXPECT_TRUE(streams.back()) << "client " << i << " of user " << user;
        }
        return streams;
    }
    /// Once the listener has noticed who left.
    Stream connectWhenThereIsRoom(std::int64_t user) {
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (std::chrono::steady_clock::now() < end) {
            if (auto stream = connect(user))
                return stream;
            std::this_thread::yield();
        }
        return nullptr;
    }

  private:
    const std::shared_ptr<FakeStreamListener::Clients> clients_ =
        std::make_shared<FakeStreamListener::Clients>();
    const std::shared_ptr<NSXPCListener> listener_;
    std::thread serving_;
};

/// Nobody has to make room.
constexpr limits::ClientLimits fewClients{
    .all = 16, .ofOneUser = 4, .kept = 4, .hardlyAny = 2, .idleTime = std::chrono::hours(1)};

TEST(NSXPCListener, TurnsAUserAwayWhoHasTooManyConnectionsAndServesTheOthers) {
    LocalListener listener(fewClients);
    const auto clients = listener.connect(1000, 4);
    EXPECT_FALSE(listener.connect(1000));
    EXPECT_TRUE(listener.connect(1001));
}

TEST(NSXPCListener, TheConnectionsOfUsersWhomAnotherAnswersForCountAsThatOnes) {
    LocalListener listener(fewClients);
    std::vector<LocalListener::Stream> streams;
    for (std::int64_t user = 100000; user < 100004; ++user) {
        streams.push_back(listener.connectFor(1000, user));
        EXPECT_TRUE(streams.back());
        EXPECT_EQ(listener.accountable, 1000);
    }
    EXPECT_FALSE(listener.connectFor(1000, 100004));
    EXPECT_FALSE(listener.connect(1000));
    EXPECT_TRUE(listener.connect(1001));
    EXPECT_EQ(listener.accountable, 1001);
}

TEST(NSXPCListener, AClientThatComesBackAtOnceIsServed) {
    LocalListener listener(fewClients);
    auto clients = listener.connect(1000, 4);
    // As many may have gone and not be cleared up yet.
    for (std::size_t i = 0; i < fewClients.ofOneUser; ++i) {
        clients.front()->shutdown();
        clients.front() = listener.connect(1000);
        ASSERT_TRUE(clients.front()) << i;
    }
    EXPECT_FALSE(listener.connect(1000));
    // Later ones wait for that at most.
    for (int i = 0; i < 100; ++i) {
        clients.front()->shutdown();
        clients.front() = listener.connectWhenThereIsRoom(1000);
        ASSERT_TRUE(clients.front()) << i;
    }
}

TEST(NSXPCListener, ClientsThatComeAndLeaveFasterThanTheyAreClearedUpLockNobodyElseOut) {
    std::promise<void> clearedUp;
    auto limits = fewClients;
    // Fewer than one user has threads, which the ends take.
    limits.all = 6;
    limits.kept = 0;
    LocalListener listener(limits);
    listener.onEnd = [going = clearedUp.get_future().share()] { going.wait(); };
    std::size_t served = 0;
    for (std::size_t i = 0; i < 2 * limits.all; ++i) {
        if (const auto client = listener.connect(1000)) {
            ++served;
            client->shutdown();
        }
    }
    EXPECT_EQ(served, 2 * limits.ofOneUser);
    EXPECT_TRUE(listener.connect(1001));
    clearedUp.set_value();
    EXPECT_TRUE(listener.connectWhenThereIsRoom(1000));
}

TEST(NSXPCListener, RequestsWaitWhileThoseOfAllUsersHaveTheThreadsThatThereAreForThem) {
    std::promise<void> answer;
    std::atomic<int> begun = 0;
    auto limits = fewClients;
    limits.places = 2;
    LocalListener listener(limits);
    listener.service->onEcho = [&, going = answer.get_future().share()](
                                   std::string text,
                                   const NSXPCReply<std::string, NSErrorRef>& reply) {
        ++begun;
        if (text == "hang")
            going.wait();
        reply(std::move(text), nullptr);
    };
    const auto hanging = {listener.ask("hang", 1000, 1000), listener.ask("hang", 1001, 1001)};
    const auto end = std::chrono::steady_clock::now() + watchdog;
    while (begun != 2 && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    const auto waiting = listener.ask("x", 1002, 1002);
    // The clock has looked at it when it comes to this.
    std::promise<void> looked;
    runAt(std::chrono::steady_clock::now() + 4 * limits::patience, [&] { looked.set_value(); });
    await(looked.get_future());
    EXPECT_EQ(begun, 2);
    answer.set_value();
    EXPECT_TRUE(FrameReader(*waiting).next());
    for (const auto& each : hanging)
        EXPECT_TRUE(FrameReader(*each).next());
}

TEST(NSXPCListener, TurnsEveryoneAwayWhenItHasTooManyConnections) {
    LocalListener listener(fewClients);
    std::vector<LocalListener::Stream> clients;
    for (std::int64_t user = 1000; user < 1016; ++user)
        clients.push_back(listener.connect(user));
    EXPECT_FALSE(listener.connect(2000));
    clients.front()->shutdown();
    EXPECT_TRUE(listener.connectWhenThereIsRoom(2000));
}

TEST(NSXPCListener, ItsLastPlacesAreForUsersWhoHaveHardlyAny) {
    LocalListener listener(fewClients);
    std::vector<std::vector<LocalListener::Stream>> clients;
    for (std::int64_t user = 1000; user < 1003; ++user)
        clients.push_back(listener.connect(user, 4));
    clients.push_back(listener.connect(1003, 2));
    EXPECT_FALSE(listener.connect(1003));
    EXPECT_TRUE(listener.connect(1004));
}

TEST(NSXPCListener, AnIdleClientMakesRoomForAnother) {
    auto limits = fewClients;
    limits.idleTime = {};
    LocalListener listener(limits);
    // Each is idle once its thread has left it, which takes a moment.
    const auto clients = listener.connect(1000, 4);
    EXPECT_TRUE(listener.connectWhenThereIsRoom(1000));
    EXPECT_EQ(std::count_if(clients.begin(), clients.end(),
                            [](const auto& client) { return client->isOver(); }),
              1);
}

TEST(NSXPCListener, AClientThatIsTurnedAwayDoesNotCount) {
    LocalListener listener(fewClients);
    const auto clients = listener.connect(1000, 4);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(listener.connect(1000));
    clients.front()->shutdown();
    EXPECT_TRUE(listener.connectWhenThereIsRoom(1000));
}

TEST(NSXPCListener, TurnsAClientAwayWhileNoThreadCanWaitForTheNext) {
    LocalListener listener;
    listener.setAlone(true);
    EXPECT_FALSE(listener.connect(1000));
    EXPECT_FALSE(listener.connect(1000));
    listener.setAlone(false);
    EXPECT_TRUE(listener.connect(1000));
}

/// Frames of a request, with this much payload each; more of them follow if it `isOpen`. The first
/// names its selector, the rest is no archive.
void sendFrames(FakeStreamSocket& stream, std::size_t frames, std::uint32_t size, bool isOpen,
                bool isFirst = true) {
    constexpr std::string_view selector = "echo:reply:";
    for (std::size_t i = 0; i < frames; ++i) {
        NSData payload(size);
        FrameHeader header;
        header.id = 8;
        header.moreFollows = isOpen || i + 1 < frames;
        header.payloadLength = size;
        if (isFirst && i == 0) {
            header.selectorLength = selector.size();
            std::copy(selector.begin(), selector.end(), payload.begin());
        }
        const auto bytes = header.bytes();
        const StreamSocket::Bytes pieces[] = {bytes, payload};
        stream.send(pieces);
    }
}

/// Frames of the largest size.
void sendLarge(FakeStreamSocket& stream, std::size_t frames, bool isOpen) {
    sendFrames(stream, frames, limits::frameSize, isOpen);
}

std::string answerText(FakeStreamSocket& stream) {
    FrameReader reader(stream);
    const auto message = reader.next();
    return message
               ? Phrase::received(std::string(message->body.begin(), message->body.end())).english()
               : "";
}

constexpr const char* noArchive =
    "The archive cannot be read: for key \"root\", it is not a binary property list.";

constexpr auto framesOfAMessage = limits::clientMessageSize / limits::frameSize;

TEST(NSXPCListener, RefusesAClientsRequestThatIsTooLargeAndServesTheNext) {
    LocalListener listener;
    const auto client = listener.connect(1000);
    sendLarge(*client, framesOfAMessage, false);
    EXPECT_EQ(answerText(*client), noArchive);
    sendLarge(*client, framesOfAMessage + 1, true);
    EXPECT_EQ(answerText(*client),
              "The request is larger than 16777216 bytes; ask for fewer items at a time.");
    sendFrames(*client, 1, 0, false, false);
    sendLarge(*client, 1, false);
    EXPECT_EQ(answerText(*client), noArchive);
}

TEST(NSXPCListener, RefusesLargeRequestsOfOneUserThatAreTooManyAtOnce) {
    LocalListener listener;
    const auto clients =
        listener.connect(1000, limits::clientMessagesOfOneUser / limits::clientMessageSize);
    for (const auto& client : clients) {
        sendLarge(*client, framesOfAMessage, true);
        EXPECT_TRUE(client->waitUntilReceived(watchdog));
    }
    const auto refused = listener.connect(1000);
    sendLarge(*refused, 1, true);
    EXPECT_EQ(answerText(*refused), "Too many large requests are being handled; ask again later.");
    // Nobody else is refused, and who is being served goes on.
    const auto other = listener.connect(1001);
    sendLarge(*other, framesOfAMessage, false);
    EXPECT_EQ(answerText(*other), noArchive);
    sendFrames(*clients.front(), 1, 0, false, false);
    EXPECT_EQ(answerText(*clients.front()), noArchive);
}

TEST(NSXPCListener, RefusesLargeRequestsOfSeveralUsersThatAreTooManyAtOnce) {
    LocalListener listener({.memory = 9 * limits::frameSize - 1});
    std::vector<LocalListener::Stream> clients;
    for (std::int64_t user = 1000; user < 1002; ++user) {
        clients.push_back(listener.connect(user));
        sendLarge(*clients.back(), 4, true);
        EXPECT_TRUE(clients.back()->waitUntilReceived(watchdog));
    }
    const auto refused = listener.connect(1002);
    sendLarge(*refused, 1, true);
    EXPECT_EQ(answerText(*refused), "Too many large requests are being handled; ask again later.");
    // What is small has room.
    EXPECT_TRUE(listener.connect(1002));
}

TEST(NSXPCListener, RepliesThatNobodyWaitsForTakeNothingFromOthers) {
    // Room for one request, decoded.
    constexpr int frames = 32;
    constexpr std::size_t decoded =
        limits::clientMessageBytes + limits::clientMessageObjects * limits::decodedObject;
    LocalListener listener({.memory = decoded + frames / 2 * limits::frameSize});
    std::vector<LocalListener::Stream> clients;
    for (std::int64_t user = 1000; user < 1000 + frames; ++user) {
        clients.push_back(listener.connect(user));
        FrameHeader header;
        header.kind = FrameKind::reply;
        header.id = 8;
        header.moreFollows = true;
        header.payloadLength = limits::frameSize;
        const auto bytes = header.bytes();
        const NSData payload(limits::frameSize);
        const StreamSocket::Bytes pieces[] = {bytes, payload};
        clients.back()->send(pieces);
        EXPECT_TRUE(clients.back()->waitUntilReceived(watchdog));
    }
    const auto other = listener.connect(999);
    sendLarge(*other, 1, false);
    EXPECT_EQ(answerText(*other), noArchive);
}

TEST(NSXPCListener, AClientsSmallRequestCannotUnfoldIntoMany) {
    LocalListener listener;
    const auto client = listener.connect(1000);
    // One URL, many times; each costs itself and its text.
    test::ArchiveBuilder archive;
    const auto text = archive.uid(archive.add(archive.list.string("file:///a")));
    const auto url = archive.uid(archive.add(archive.dictionary(
        {{"NS.relative", text}, {"$class", archive.classNamed("NSURL", {"NSURL", "NSObject"})}})));
    const std::vector<test::ArchiveBuilder::Ref> urls(limits::clientMessageObjects / 2 + 1, url);
    const auto array = archive.uid(archive.add(
        archive.dictionary({{"NS.objects", archive.list.array(urls)},
                            {"$class", archive.classNamed("NSArray", {"NSArray", "NSObject"})}})));
    const auto body = archive.finish(archive.dictionary({{"0", array}}));
    const auto request = requestFrame("echoUrls:reply:", body);
    const StreamSocket::Bytes pieces[] = {request};
    client->send(pieces);
    const auto answer = answerText(*client);
    EXPECT_NE(answer.find("the archive unfolds into too many objects"), std::string::npos)
        << answer;
}

TEST(NSXPCListener, ClosesAConnectionThatItsHandlerDoesNotTakeAndServesTheNext) {
    LocalListener listener;
    listener.onClient = [] { return false; };
    EXPECT_FALSE(listener.connect(1000));
    listener.onClient = []() -> bool { throw std::runtime_error("no"); };
    EXPECT_FALSE(listener.connect(1000));
    listener.onClient = nullptr;
    EXPECT_TRUE(listener.connect(1000));
}

}  // namespace
}  // namespace morvane
