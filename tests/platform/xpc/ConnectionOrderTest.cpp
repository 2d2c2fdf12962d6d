// SPDX-License-Identifier: MIT
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "XpcTestSupport.h"

namespace morvane {
namespace {

/// A stream that says when somebody is about to wait for its bytes, and lets it do so later.
class GatedStream final : public FakeStreamSocket {
  public:
    using FakeStreamSocket::FakeStreamSocket;
    std::function<void()> beforeReading;

    void whenReadable(std::function<void()> reading) override {
        if (beforeReading)
            beforeReading();
        FakeStreamSocket::whenReadable(std::move(reading));
    }
};

class GatedEndpoint final : public ServiceEndpoint {
  public:
    std::function<void()> beforeReading;
    std::function<void(const std::shared_ptr<FakeStreamSocket>&)> accept;

    Result<std::shared_ptr<StreamSocket>> connect() override {
        const auto there = std::make_shared<FakeStreamSocket::Pipe>();
        const auto back = std::make_shared<FakeStreamSocket::Pipe>();
        const auto near = std::make_shared<GatedStream>(back, there);
        near->beforeReading = beforeReading;
        accept(std::make_shared<FakeStreamSocket>(there, back));
        return near;
    }
};

TEST(NSXPCConnection, ARequestDoesNotPassThoseOfItsThreadThatWaitWhileAnotherThreadConnects) {
    auto made = std::make_unique<GatedEndpoint>();
    auto& endpoint = *made;
    const auto connection = std::make_shared<NSXPCConnection>(
        std::make_shared<NSXPCConnection::Core>("gated", std::move(made)));
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
    const auto service = std::make_shared<EchoService>();
    std::vector<std::string> arrived;
    service->onEcho = [&](std::string text, auto reply) {
        arrived.push_back(text);
        reply(std::move(text), nullptr);
    };
    std::shared_ptr<NSXPCConnection> server;
    std::promise<void> connecting;
    std::promise<void> waits;
    endpoint.accept = [&](const std::shared_ptr<FakeStreamSocket>& far) {
        server = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("client", far));
        server->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        server->setExportedObject<Echo>(service);
        server->resume();
        connecting.set_value();
        await(waits.get_future());
    };
    std::promise<void> connected;
    std::promise<void> passed;
    endpoint.beforeReading = [&] {
        connected.set_value();
        await(passed.get_future());
    };
    connection->resume();
    std::array<std::promise<void>, 3> replied;
    const auto proxy = connection->remoteObjectProxy<Echo>();
    const auto send = [&](const char* text, std::size_t index) {
        proxy->echo(text, [&replied, index](auto, auto) { replied[index].set_value(); });
    };
    std::thread connects([&] { send("connects", 0); });
    await(connecting.get_future());
    send("first", 1);
    waits.set_value();
    await(connected.get_future());
    send("second", 2);
    passed.set_value();
    connects.join();
    for (auto& reply : replied)
        await(reply.get_future());
    EXPECT_EQ(arrived, (std::vector<std::string>{"connects", "first", "second"}));
    server->invalidate();
}

/// Each thread's requests, as they arrive at a service.
class Arrivals {
  public:
    void add(const std::string& text) {
        const auto slash = text.find('/');
        const auto thread = text.substr(0, slash);
        const auto number = std::stoi(text.substr(slash + 1));
        const std::lock_guard lock(mutex_);
        auto& last = last_[thread];
        reversed_ += number <= last;
        last = number;
    }
    int reversed() {
        const std::lock_guard lock(mutex_);
        return reversed_;
    }

  private:
    std::mutex mutex_;
    std::map<std::string, int> last_;
    int reversed_ = 0;
};

/// Threads that all send at once, each in its own order, while something happens to the connection.
class Senders {
  public:
    static constexpr int threads = 4;
    static constexpr int requests = 50;
    /// So many of one thread are under way at once.
    static constexpr int together = 10;

    explicit Senders(EchoPair& pair) : pair_(pair) {}

    void start() {
        for (int t = 0; t < threads; ++t) {
            threads_.emplace_back([this, t] {
                std::future<void> last;
                for (int i = 1; i <= requests; ++i) {
                    const auto ended = std::make_shared<std::promise<void>>();
                    if (i % together == 1 && i > 1)
                        await(std::move(last));
                    last = ended->get_future();
                    const auto end = [this, ended] {
                        ended->set_value();
                        this->end();
                    };
                    pair_.client
                        ->remoteObjectProxyWithErrorHandler<Echo>([end](NSErrorRef) { end(); })
                        ->echo(std::to_string(t) + "/" + std::to_string(i),
                               [end](auto, auto) { end(); });
                }
            });
        }
    }
    void finish() {
        for (auto& thread : threads_)
            thread.join();
        await(allEnded_.get_future());
        EXPECT_EQ(ended_, threads * requests);
    }

  private:
    void end() {
        if (++ended_ == threads * requests)
            allEnded_.set_value();
    }

    EchoPair& pair_;
    std::vector<std::thread> threads_;
    std::atomic<int> ended_ = 0;
    std::promise<void> allEnded_;
};

TEST(NSXPCConnection, TheRequestsOfEachThreadArriveInOrderFromTheFirstOn) {
    for (int round = 0; round < 100; ++round) {
        Arrivals arrivals;
        EchoPair pair;
        pair.service->onEcho = [&](std::string text, auto reply) {
            arrivals.add(text);
            reply(std::move(text), nullptr);
        };
        Senders senders(pair);
        if (round % 2 == 0)
            pair.client->resume();
        senders.start();
        pair.client->resume();
        senders.finish();
        ASSERT_EQ(arrivals.reversed(), 0) << round;
    }
}

TEST(NSXPCConnection, TheRequestsOfEachThreadArriveInOrderAcrossARestartOfTheService) {
    for (int round = 0; round < 100; ++round) {
        Arrivals arrivals;
        EchoPair pair;
        std::atomic<int> asked = 0;
        pair.service->onEcho = [&](std::string text, auto reply) {
            arrivals.add(text);
            if (++asked % 60 == 0)
                pair.servers.back()->invalidate();
            reply(std::move(text), nullptr);
        };
        pair.client->resume();
        Senders senders(pair);
        senders.start();
        senders.finish();
        ASSERT_EQ(arrivals.reversed(), 0) << round;
        EXPECT_GT(pair.streams, 1);
    }
}

}  // namespace
}  // namespace morvane
