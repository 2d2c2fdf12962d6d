// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace morvane {

class NSXPCListener::Core {
  public:
    /// Serves one client, or those of a listening socket.
    explicit Core(std::shared_ptr<StreamSocket> only)
        : clients_(std::make_shared<Clients>(limits::ClientLimits())), only_(std::move(only)) {}
    Core(std::unique_ptr<StreamListener> listener, const limits::ClientLimits& clients)
        : clients_(std::make_shared<Clients>(clients)), listener_(std::move(listener)) {}

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
    /// Outlives the listener: each connection tells it of its end.
    class Clients {
      public:
        explicit Clients(const limits::ClientLimits& limits)
            : limits_(limits),
              memory_(std::make_shared<SharedBudget>(limits.memory)),
              places_(std::make_shared<SharedBudget>(limits.places)) {}

        /// Whether there is a place for another client of the user's; maybe by letting one go that
        /// has been idle.
        bool makeRoomFor(std::int64_t user) {
            std::shared_ptr<NSXPCConnection::Core> idle;
            {
                const std::lock_guard lock(mutex_);
                std::size_t all = 0;
                std::size_t ofUser = 0;
                std::size_t heldByUser = 0;
                // One that has gone but has not been cleared up does not count, or a client that
                // comes back at once would be refused.
                for (const auto& each : connections_) {
                    heldByUser += each.user == user;
                    const auto core = each.core.lock();
                    if (!core || core->isOver())
                        continue;
                    ++all;
                    ofUser += each.user == user;
                }
                if (connections_.size() >= 2 * limits_.all || heldByUser >= 2 * limits_.ofOneUser)
                    return false;
                const bool isUserFull = ofUser >= limits_.ofOneUser;
                const auto kept = ofUser < limits_.hardlyAny ? 0 : limits_.kept;
                if (!isUserFull && all + kept < limits_.all)
                    return true;
                auto since = std::chrono::steady_clock::now() - limits_.idleTime;
                for (const auto& each : connections_) {
                    auto core = each.core.lock();
                    const auto began = core && (!isUserFull || each.user == user)
                                           ? core->idleSince()
                                           : std::nullopt;
                    if (began && *began <= since) {
                        since = *began;
                        idle = std::move(core);
                    }
                }
            }
            if (idle)
                idle->invalidate();
            return idle != nullptr;
        }
        /// What all clients of the user are counted against.
        std::shared_ptr<ClientAccount> accountOf(std::int64_t user) {
            const std::lock_guard lock(mutex_);
            std::erase_if(accounts_, [](const auto& each) { return each.second.expired(); });
            auto& known = accounts_[user];
            auto account = known.lock();
            if (!account) {
                account = std::make_shared<ClientAccount>(
                    ClientAccount::Limits{.memory = limits::memoryOfOneUser,
                                          .places = limits::placesOfOneUser,
                                          .memoryOfAll = memory_,
                                          .placesOfAll = places_},
                    user);
                known = account;
            }
            return account;
        }
        std::uint64_t newNumber() {
            const std::lock_guard lock(mutex_);
            return ++lastNumber_;
        }
        void add(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection,
                 const std::shared_ptr<NSXPCConnection::Core>& core, std::int64_t user) {
            const std::lock_guard lock(mutex_);
            connections_.push_back({number, user, core, connection, nullptr});
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
        /// False once closed.
        bool beginAccepting() {
            const std::lock_guard lock(mutex_);
            if (!closed_)
                ++accepting_;
            return !closed_;
        }
        void endAccepting() {
            const std::lock_guard lock(mutex_);
            if (--accepting_ == 0 && closed_)
                closing_.notify_all();
        }
        /// Returns with the listener closed and nobody accepting. `timeout` 0: never for idleness.
        void waitUntilClosedOrIdle(std::chrono::seconds timeout) {
            std::unique_lock lock(mutex_);
            while (!closed_) {
                // Whoever is here now leaves at the earliest now, so nobody has to wake this.
                const auto now = std::chrono::steady_clock::now();
                const bool idle = accepting_ == 0 && connections_.empty();
                const auto end = (idle ? idleSince_ : now) + timeout;
                if (timeout.count() == 0) {
                    closing_.wait(lock);
                } else if (now < end) {
                    closing_.wait_until(lock, end);
                } else {
                    closed_ = true;
                }
            }
            closing_.wait(lock, [&] { return accepting_ == 0; });
        }
        bool isClosed() {
            const std::lock_guard lock(mutex_);
            return closed_;
        }
        void close() {
            const std::lock_guard lock(mutex_);
            closed_ = true;
            closing_.notify_all();
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
            std::weak_ptr<NSXPCConnection::Core> core;
            std::weak_ptr<NSXPCConnection> connection;
            /// The same, once it is in use.
            std::shared_ptr<NSXPCConnection> kept;
        };
        std::vector<Client>::iterator find(std::uint64_t number) {
            return std::find_if(connections_.begin(), connections_.end(),
                                [&](auto& client) { return client.number == number; });
        }

        const limits::ClientLimits limits_;
        const std::shared_ptr<SharedBudget> memory_;
        const std::shared_ptr<SharedBudget> places_;
        std::mutex mutex_;
        std::condition_variable none_;
        std::condition_variable closing_;
        std::vector<Client> connections_;
        /// By user. One lasts until the last of its user's requests has ended, whose connection may
        /// have gone long before.
        std::map<std::int64_t, std::weak_ptr<ClientAccount>> accounts_;
        std::chrono::steady_clock::time_point idleSince_ = std::chrono::steady_clock::now();
        std::uint64_t lastNumber_ = 0;
        unsigned accepting_ = 0;
        bool closed_ = false;
    };

    /// The thread that has accepted a client reads what it sends, while another waits for the next
    /// client already: no client waits until a thread has woken.
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
            // For the client's stream, which has gone.
        }
        listener_->waitForNext();
        // The listener may be gone after this.
        clients_->endAccepting();
        if (reading)
            reading();
    }

    /// False if there is no memory or thread to serve it.
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
            // Anyone may connect; a private service has its application's trust.
            core->incoming.messageSize = limits::clientMessageSize;
            core->incoming.bufferSize = limits::clientBufferSize;
            core->incoming.shared = ClientAccount::receivedOf(account);
            core->account = account;
            core->requests.memory = ClientAccount::memoryOf(account);
            core->requests.decoding.bytes = limits::clientMessageBytes;
            core->requests.decoding.objects = limits::clientMessageObjects;
        }
        const auto number = clients_->newNumber();
        // First: one that is among the clients is removed whatever happens.
        core->onEnd = [clients = clients_, number] { clients->remove(number); };
        clients_->add(number, connection, core, user);
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
