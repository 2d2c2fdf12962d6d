// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace morvane {

/// The clients of a listener: how many there may be, of all users and of one, what each user's
/// clients use together, and when nobody is left. It outlives the listener, as each connection
/// reports its end to it. It may be used on any thread.
class ServedClients {
  public:
    explicit ServedClients(const limits::ClientLimits& limits);

    /// Whether another client of the user's may be served. If there are too many, the client that
    /// has been idle for the longest time is let go in its favour.
    bool makeRoomFor(std::int64_t user);
    /// What all clients of the user are counted against.
    std::shared_ptr<ClientAccount> accountOf(std::int64_t user);
    std::uint64_t newNumber();
    void add(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection,
             const std::shared_ptr<NSXPCConnection::Core>& core, std::int64_t user);
    /// Keeps the connection alive from now on until its end.
    void keep(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection);
    void remove(std::uint64_t number);

    /// False if nobody is accepted any more, and then endAccepting() is not called.
    bool beginAccepting();
    void endAccepting();
    /// Returns once close() was called, or there has been no client for `timeout`, and no thread is
    /// accepting one. A `timeout` of 0 never ends.
    void waitUntilClosedOrIdle(std::chrono::seconds timeout);
    bool isClosed();
    void close();
    void waitUntilNone();
    void invalidateAll();

  private:
    struct Client {
        std::uint64_t number;
        std::int64_t user;
        std::weak_ptr<NSXPCConnection::Core> core;
        std::weak_ptr<NSXPCConnection> connection;
        /// The same connection, once it is in use.
        std::shared_ptr<NSXPCConnection> kept;
    };
    std::vector<Client>::iterator find(std::uint64_t number);

    const limits::ClientLimits limits_;
    const std::shared_ptr<SharedBudget> memory_;
    const std::shared_ptr<SharedBudget> places_;
    std::mutex mutex_;
    std::condition_variable none_;
    std::condition_variable closing_;
    std::vector<Client> clients_;
    /// By user. An account lasts until the last request of its user has ended, whose connection may
    /// have ended long before.
    std::map<std::int64_t, std::weak_ptr<ClientAccount>> accounts_;
    std::chrono::steady_clock::time_point idleSince_ = std::chrono::steady_clock::now();
    std::uint64_t lastNumber_ = 0;
    unsigned accepting_ = 0;
    bool closed_ = false;
};

}  // namespace morvane
