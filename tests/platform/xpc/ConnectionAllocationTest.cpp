// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "MemoryShortage.h"
#include "RawRequests.h"
#include "XpcTestSupport.h"

/// What a connection does when memory runs out: each allocation of a scenario fails in turn.
namespace morvane {
namespace {

/// Real streams to a service in this process.
class ServiceHere final : public ServiceEndpoint {
  public:
    Result<std::shared_ptr<StreamSocket>> connect() override {
        int pair[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
            return Failure{systemError(errno, "no stream")};
        FileDescriptor far(pair[0]);
        FileDescriptor near(pair[1]);
        auto connection = std::make_shared<NSXPCConnection>(std::make_shared<NSXPCConnection::Core>(
            "client", std::make_shared<LinuxStreamSocket>(std::move(far))));
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setExportedObject<Echo>(service);
        connection->resume();
        auto stream = std::make_shared<LinuxStreamSocket>(std::move(near));
        server = std::move(connection);
        return stream;
    }

    const std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    std::shared_ptr<NSXPCConnection> server;
};

/// A request's ends; none of its callbacks needs memory.
struct Request {
    std::atomic<int> replies = 0;
    std::atomic<int> errors = 0;
    bool refused = false;

    int ends() const { return replies + errors + (refused ? 1 : 0); }
    void await() const {
        const auto end = std::chrono::steady_clock::now() + watchdog;
        while (ends() == 0) {
            if (std::chrono::steady_clock::now() > end)
                std::abort();
            std::this_thread::yield();
        }
    }
};

class Client {
  public:
    Client() {
        auto made = std::make_unique<ServiceHere>();
        endpoint = made.get();
        connection = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("here", std::move(made)));
        connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setInterruptionHandler([] {});
        connection->setInvalidationHandler([this] { invalidated = true; });
        connection->resume();
        for (auto& request : requests) {
            proxies.push_back(connection->remoteObjectProxyWithErrorHandler<Echo>(
                [&request](NSErrorRef) { ++request.errors; }));
        }
    }
    ~Client() {
        connection->invalidate();
        while (!invalidated)
            std::this_thread::yield();
    }

    void send(std::size_t index) {
        try {
            proxies[index]->echo("x",
                                 [&request = requests[index]](auto, auto) { ++request.replies; });
        } catch (const std::bad_alloc&) {
            requests[index].refused = true;
        } catch (const std::system_error&) {
            requests[index].refused = true;
        }
    }

    std::array<Request, 4> requests;
    std::vector<std::shared_ptr<Echo>> proxies;
    ServiceHere* endpoint;
    std::shared_ptr<NSXPCConnection> connection;
    std::atomic<bool> invalidated = false;
};

void expectEachRequestToEndOnceAndTheNextToWork(bool forGood) {
    for (long count = 0;; ++count) {
        Client client;
        std::optional<MemoryShortage> shortage(std::in_place, count, forGood);
        client.send(0);  // connects
        client.send(1);
        client.requests[0].await();
        client.requests[1].await();
        if (client.endpoint->server)
            client.endpoint->server->invalidate();  // as if the service had died
        client.send(2);
        client.requests[2].await();
        const bool isReached = shortage->isReached();
        shortage.reset();
        for (int attempt = 0; attempt < 2 && client.requests[3].replies == 0; ++attempt) {
            // The service's own end may only now be noticed, which is one error more.
            client.requests[3].errors = 0;
            client.send(3);
            client.requests[3].await();
        }
        for (std::size_t i = 0; i < 3; ++i)
            ASSERT_EQ(client.requests[i].ends(), 1) << "request " << i << ", allocation " << count;
        ASSERT_EQ(client.requests[3].replies, 1) << "allocation " << count;
        ASSERT_FALSE(client.invalidated) << "allocation " << count;
        if (!isReached)
            return;
    }
}

TEST(NSXPCConnectionWithoutMemory, EachRequestEndsOnceAndTheNextOneWorks) {
    expectEachRequestToEndOnceAndTheNextToWork(false);
}

TEST(NSXPCConnectionWithoutMemory, EachRequestEndsOnceAlsoWhileThereIsNoneForGood) {
    expectEachRequestToEndOnceAndTheNextToWork(true);
}

/// Clients of a listener in this process, accepted when the test says so.
class ClientsHere final : public StreamListener {
  public:
    struct Shared {
        std::mutex mutex;
        std::condition_variable changed;
        std::function<void(bool)> acceptNext;
        FileDescriptor next;

        /// A client that has sent a request already, and gives up after a while.
        FileDescriptor connect(const std::vector<std::uint8_t>& request) {
            int pair[2] = {-1, -1};
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
            next = FileDescriptor(pair[0]);
            FileDescriptor client(pair[1]);
            const timeval patience{std::chrono::seconds(watchdog).count(), 0};
            setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
            EXPECT_EQ(send(client.get(), request.data(), request.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(request.size()));
            return client;
        }
    };
    explicit ClientsHere(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    void start(std::function<void(bool)> task) override {
        const std::lock_guard lock(shared_->mutex);
        shared_->acceptNext = std::move(task);
        shared_->changed.notify_all();
    }
    std::shared_ptr<StreamSocket> accept() override {
        auto client = std::move(shared_->next);
        return std::make_shared<LinuxStreamSocket>(std::move(client));
    }
    void waitForNext() override {}
    void stop() override {}

  private:
    const std::shared_ptr<Shared> shared_;
};

TEST(NSXPCListenerWithoutMemory, AClientIsAnsweredOrItsStreamEndsAndTheNextIsAnswered) {
    const auto request = echoRequest("x");
    for (const bool forGood : {false, true}) {
        for (long count = 0;; ++count) {
            const auto clients = std::make_shared<ClientsHere::Shared>();
            const auto listener =
                std::make_shared<NSXPCListener>(std::make_unique<ClientsHere>(clients));
            listener->setNewConnectionHandler([](const auto& connection) {
                connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
                connection->template setExportedObject<Echo>(std::make_shared<EchoService>());
                connection->resume();
                return true;
            });
            std::thread serving([&] { listener->run(); });
            {
                std::unique_lock lock(clients->mutex);
                clients->changed.wait(lock, [&] { return clients->acceptNext != nullptr; });
            }
            std::uint8_t byte = 0;
            bool isReached = false;
            const auto first = clients->connect(request);
            {
                const MemoryShortage shortage(count, forGood);
                clients->acceptNext(false);
                isReached = shortage.isReached();
            }
            EXPECT_TRUE(recv(first.get(), &byte, 1, 0) >= 0 || errno == ECONNRESET)
                << "allocation " << count;
            const auto second = clients->connect(request);
            clients->acceptNext(false);
            EXPECT_EQ(recv(second.get(), &byte, 1, 0), 1) << "allocation " << count;
            listener->invalidate();
            serving.join();
            if (!isReached || HasFailure())
                break;
        }
    }
}

}  // namespace
}  // namespace morvane
