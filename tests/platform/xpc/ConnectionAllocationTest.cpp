#include <MorvaneOperation/platform/linux/LinuxStreamSocket.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <system_error>
#include <thread>

#include "XpcTestSupport.h"

namespace {

/// While this is set, allocations fail once `allocationsLeft` have succeeded: one, or all.
std::atomic<bool> isShort = false;
std::atomic<bool> forGood = false;
std::atomic<long> allocationsLeft = 0;
std::atomic<int> failed = 0;

bool fails() {
    if (!isShort)
        return false;
    const auto left = allocationsLeft.fetch_sub(1);
    const bool now = forGood ? left <= 0 : left == 0;
    failed += now;
    return now;
}

}  // namespace

void* operator new(std::size_t size) {
    if (!fails()) {
        if (void* const memory = std::malloc(size))
            return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

/// What a connection does when memory runs out: each allocation of a scenario fails in turn.
namespace morvane {
namespace {

/// Real streams to a service in this process.
class ServiceHere final : public ServiceEndpoint {
  public:
    std::shared_ptr<StreamSocket> connect(NSErrorRef* error) override {
        int pair[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
            *error = systemError(errno, "no stream");
            return nullptr;
        }
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

void expectEachRequestToEndOnceAndTheNextToWork(bool good) {
    for (long count = 0;; ++count) {
        Client client;
        failed = 0;
        forGood = good;
        allocationsLeft = count;
        isShort = true;
        client.send(0);  // connects
        client.send(1);
        client.requests[0].await();
        client.requests[1].await();
        if (client.endpoint->server)
            client.endpoint->server->invalidate();  // as if the service had died
        client.send(2);
        client.requests[2].await();
        isShort = false;
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
        if (failed == 0)
            return;
    }
}

TEST(NSXPCConnectionWithoutMemory, EachRequestEndsOnceAndTheNextOneWorks) {
    expectEachRequestToEndOnceAndTheNextToWork(false);
}

TEST(NSXPCConnectionWithoutMemory, EachRequestEndsOnceAlsoWhileThereIsNoneForGood) {
    expectEachRequestToEndOnceAndTheNextToWork(true);
}

}  // namespace
}  // namespace morvane
