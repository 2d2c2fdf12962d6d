// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <MorvaneOperation/platform/xpc/ServedClients.h>

#include <chrono>
#include <utility>

namespace morvane {

class NSXPCListener::Core {
  public:
    /// Serves one client, or those of a listening socket.
    explicit Core(std::shared_ptr<StreamSocket> only)
        : clients_(std::make_shared<ServedClients>(limits::ClientLimits())),
          only_(std::move(only)) {}
    Core(std::unique_ptr<StreamListener> listener, const limits::ClientLimits& clients)
        : clients_(std::make_shared<ServedClients>(clients)), listener_(std::move(listener)) {}

    NewConnectionHandler handler;
    std::chrono::seconds idleTimeout{0};

    void holdClientProcesses() {
        if (listener_)
            listener_->holdPeerProcesses();
    }

    int run() {
        if (only_) {
            const bool isServed = clients_->isClosed() || add(std::move(only_));
            clients_->waitUntilNone();
            return isServed ? 0 : 1;
        }
        listener_->start([this, clients = clients_](bool alone) {
            if (clients->beginAccepting())  // or this may be gone
                serveNext(alone);
        });
        clients_->waitUntilClosedOrIdle(idleTimeout);
        listener_->stop();
        clients_->invalidateAll();
        clients_->waitUntilNone();
        return 0;
    }

    void invalidate() {
        clients_->close();
        clients_->invalidateAll();
    }

  private:
    /// Accepts a client. The thread that does so then reads what the client sends, while another
    /// thread waits for the next client already, so that no client waits for a thread to wake.
    void serveNext(bool alone) noexcept {
        std::function<void()> reading;
        try {
            if (auto socket = listener_->accept()) {
                if (alone) {
                    socket->shutdown();
                } else {
                    reading = keepingFirstTask([&] { add(std::move(socket)); });
                }
            }
        } catch (const std::bad_alloc&) {
            // The client's stream has been closed with it.
        }
        listener_->waitForNext();
        // The listener may be gone after this.
        clients_->endAccepting();
        if (reading)
            reading();
    }

    /// Returns false if there is no memory or thread to serve the client with.
    bool add(const std::shared_ptr<StreamSocket>& socket) noexcept {
        try {
            serve(socket);
            return true;
        } catch (const std::exception&) {
            socket->shutdown();  // the other clients are served
            return false;
        }
    }

    void serve(const std::shared_ptr<StreamSocket>& socket) {
        const auto user = socket->accountableUser();
        if (!handler || user < 0 || !clients_->makeRoomFor(user)) {
            socket->shutdown();
            return;
        }
        const auto core = std::make_shared<NSXPCConnection::Core>("client", socket);
        const auto connection = std::make_shared<NSXPCConnection>(core);
        const auto account = clients_->accountOf(user);
        if (listener_) {
            // Anyone may connect to it, while a private service trusts its application.
            core->incoming.messageSize = limits::clientMessageSize;
            core->incoming.bufferSize = limits::clientBufferSize;
            core->incoming.shared = ClientAccount::receivedOf(account);
            core->account = account;
            core->requests.memory = ClientAccount::memoryOf(account);
            core->requests.decoding.bytes = limits::clientMessageBytes;
            core->requests.decoding.objects = limits::clientMessageObjects;
        }
        const auto number = clients_->newNumber();
        // This comes first, so that whoever is among the clients is removed whatever happens.
        core->onEnd = [clients = clients_, number] { clients->remove(number); };
        clients_->add(number, connection, core, user);
        bool isTaken = false;
        try {
            isTaken = handler(connection);
        } catch (const std::exception&) {
            // Only this client is not served.
        }
        if (!isTaken) {
            connection->invalidate();
        } else if (core->isInUse()) {
            clients_->keep(number, connection);
        }
    }

    const std::shared_ptr<ServedClients> clients_;
    std::shared_ptr<StreamSocket> only_;
    const std::unique_ptr<StreamListener> listener_;
};

NSXPCListener::NSXPCListener(std::unique_ptr<Core> core) : core_(std::move(core)) {}

NSXPCListener::NSXPCListener(std::unique_ptr<StreamListener> listener)
    : NSXPCListener(std::move(listener), limits::ClientLimits()) {}

NSXPCListener::NSXPCListener(std::unique_ptr<StreamListener> listener,
                             const limits::ClientLimits& clients)
    : NSXPCListener(std::make_unique<Core>(std::move(listener), clients)) {}

NSXPCListener::~NSXPCListener() = default;

std::shared_ptr<NSXPCListener> NSXPCListener::serviceListener(NSErrorRef* error) {
    auto stream = inheritedStream();
    if (stream)
        return std::make_shared<NSXPCListener>(std::make_unique<Core>(*std::move(stream)));
    if (error)
        *error = stream.error();
    return nullptr;
}

std::shared_ptr<NSXPCListener> NSXPCListener::activatedListener(NSErrorRef* error) {
    auto listener = inheritedListener();
    if (listener)
        return std::make_shared<NSXPCListener>(*std::move(listener));
    if (error)
        *error = listener.error();
    return nullptr;
}

void NSXPCListener::setNewConnectionHandler(NewConnectionHandler handler) {
    core_->handler = std::move(handler);
}

void NSXPCListener::setIdleTimeout(std::uint32_t seconds) {
    core_->idleTimeout = std::chrono::seconds(seconds);
}

void NSXPCListener::holdClientProcesses() {
    core_->holdClientProcesses();
}

int NSXPCListener::run() {
    return core_->run();
}

void NSXPCListener::invalidate() {
    core_->invalidate();
}

}  // namespace morvane
