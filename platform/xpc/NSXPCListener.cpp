#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace morvane {

class NSXPCListener::Core {
  public:
    /// Serves one client, or those of a listening socket.
    explicit Core(std::shared_ptr<StreamSocket> only)
        : clients_(std::make_shared<Clients>()), only_(std::move(only)) {}
    explicit Core(std::unique_ptr<StreamListener> listener)
        : clients_(std::make_shared<Clients>()), listener_(std::move(listener)) {}

    NewConnectionHandler handler;
    std::chrono::seconds idleTimeout{0};

    int run() {
        if (only_) {
            if (!clients_->isClosed())
                add(std::move(only_));
            clients_->waitUntilNone();
            return 0;
        }
        runOnWorker([this] { acceptClients(); });
        {
            std::unique_lock lock(mutex_);
            ended_.wait(lock, [&] { return hasEnded_; });
        }
        clients_->invalidateAll();
        clients_->waitUntilNone();
        return 0;
    }

    void invalidate() {
        clients_->close();
        if (listener_)
            listener_->shutdown();
        clients_->invalidateAll();
    }

  private:
    /// Outlives the listener: each connection tells it of its end.
    class Clients {
      public:
        bool hasRoomFor(std::int64_t user) {
            const std::lock_guard lock(mutex_);
            const auto ofUser = std::count_if(connections_.begin(), connections_.end(),
                                              [&](auto& c) { return c.user == user; });
            return connections_.size() < limits::clients &&
                   static_cast<std::size_t>(ofUser) < limits::clientsOfOneUser;
        }
        /// Returns the client's number.
        std::uint64_t add(const std::shared_ptr<NSXPCConnection>& connection, std::int64_t user) {
            const std::lock_guard lock(mutex_);
            connections_.push_back({++lastNumber_, user, connection, nullptr});
            return lastNumber_;
        }
        /// From now on until its end the connection is kept alive.
        void keep(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection) {
            const std::lock_guard lock(mutex_);
            const auto found = find(number);
            if (found != connections_.end())
                found->kept = connection;
        }
        void remove(std::uint64_t number) {
            std::shared_ptr<NSXPCConnection> removed;
            const std::lock_guard lock(mutex_);
            const auto found = find(number);
            if (found == connections_.end())
                return;
            removed = std::move(found->kept);
            connections_.erase(found);
            if (connections_.empty()) {
                idleSince_ = std::chrono::steady_clock::now();
                none_.notify_all();
            }
        }
        /// Since when there has been no client; empty while there is one.
        StreamSocket::Deadline idleSince() {
            const std::lock_guard lock(mutex_);
            return connections_.empty() ? StreamSocket::Deadline(idleSince_) : std::nullopt;
        }
        bool isClosed() {
            const std::lock_guard lock(mutex_);
            return closed_;
        }
        void close() {
            const std::lock_guard lock(mutex_);
            closed_ = true;
        }
        void waitUntilNone() {
            std::unique_lock lock(mutex_);
            none_.wait(lock, [&] { return connections_.empty(); });
        }
        void invalidateAll() {
            std::vector<Client> all;
            {
                const std::lock_guard lock(mutex_);
                all = connections_;
            }
            for (const auto& client : all) {
                if (const auto connection = client.connection.lock())
                    connection->invalidate();
            }
        }

      private:
        struct Client {
            std::uint64_t number;
            std::int64_t user;
            std::weak_ptr<NSXPCConnection> connection;
            /// The same, once it is in use.
            std::shared_ptr<NSXPCConnection> kept;
        };
        std::vector<Client>::iterator find(std::uint64_t number) {
            return std::find_if(connections_.begin(), connections_.end(),
                                [&](auto& client) { return client.number == number; });
        }

        std::mutex mutex_;
        std::condition_variable none_;
        std::vector<Client> connections_;
        std::chrono::steady_clock::time_point idleSince_ = std::chrono::steady_clock::now();
        std::uint64_t lastNumber_ = 0;
        bool closed_ = false;
    };

    /// The thread that has accepted a client reads what it sends, and another accepts the next: no
    /// client waits until a thread has woken.
    void acceptClients() {
        for (;;) {
            const auto now = std::chrono::steady_clock::now();
            const auto idleSince = clients_->idleSince().value_or(now);
            StreamSocket::Deadline deadline;
            if (idleTimeout.count() != 0)
                deadline = idleSince + idleTimeout;
            if (auto socket = listener_->accept(deadline)) {
                const auto stream = socket;
                if (const auto reading = keepingFirstTask([&] { add(std::move(socket)); })) {
                    const bool handedOver = handOver();
                    if (!handedOver)
                        stream->shutdown();  // no thread for it; this one goes on accepting
                    // From here on the listener may be gone if another thread accepts.
                    reading();
                    if (handedOver)
                        return;
                }
            } else if (clients_->isClosed() || !deadline || clients_->idleSince() == idleSince) {
                break;
            }
        }
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
        ended_.notify_all();
    }

    bool handOver() {
        try {
            runOnWorker([this] { acceptClients(); });
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    void add(std::shared_ptr<StreamSocket> socket) {
        const auto user = socket->peer().userIdentifier;
        if (!handler || !clients_->hasRoomFor(user)) {
            socket->shutdown();
            return;
        }
        const auto core = std::make_shared<NSXPCConnection::Core>("client", std::move(socket));
        const auto connection = std::make_shared<NSXPCConnection>(core);
        const auto number = clients_->add(connection, user);
        core->onEnd = [clients = clients_, number] { clients->remove(number); };
        bool isTaken = false;
        try {
            isTaken = handler(connection);
        } catch (const std::exception&) {
            // One client's trouble; the others are served.
        }
        if (!isTaken) {
            connection->invalidate();
        } else if (core->isInUse()) {
            clients_->keep(number, connection);
        }
    }

    const std::shared_ptr<Clients> clients_;
    std::shared_ptr<StreamSocket> only_;
    const std::unique_ptr<StreamListener> listener_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool hasEnded_ = false;
};

NSXPCListener::NSXPCListener(std::unique_ptr<Core> core) : core_(std::move(core)) {}

NSXPCListener::~NSXPCListener() = default;

std::shared_ptr<NSXPCListener> NSXPCListener::serviceListener(NSErrorRef* error) {
    auto socket = inheritedStream(error);
    if (!socket)
        return nullptr;
    return std::make_shared<NSXPCListener>(std::make_unique<Core>(std::move(socket)));
}

std::shared_ptr<NSXPCListener> NSXPCListener::activatedListener(NSErrorRef* error) {
    auto listener = inheritedListener(error);
    if (!listener)
        return nullptr;
    return std::make_shared<NSXPCListener>(std::make_unique<Core>(std::move(listener)));
}

void NSXPCListener::setNewConnectionHandler(NewConnectionHandler handler) {
    core_->handler = std::move(handler);
}

void NSXPCListener::setIdleTimeout(std::uint32_t seconds) {
    core_->idleTimeout = std::chrono::seconds(seconds);
}

int NSXPCListener::run() {
    return core_->run();
}

void NSXPCListener::invalidate() {
    core_->invalidate();
}

}  // namespace morvane
