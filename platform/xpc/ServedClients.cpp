// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/ServedClients.h>

#include <algorithm>
#include <utility>

namespace morvane {

ServedClients::ServedClients(const limits::ClientLimits& limits)
    : limits_(limits),
      memory_(std::make_shared<SharedBudget>(limits.memory)),
      places_(std::make_shared<SharedBudget>(limits.places)) {}

bool ServedClients::makeRoomFor(std::int64_t user) {
    std::shared_ptr<NSXPCConnection::Core> idle;
    {
        const std::lock_guard lock(mutex_);
        std::size_t all = 0;
        std::size_t ofUser = 0;
        std::size_t heldByUser = 0;
        // A client that has left but has not been cleared up does not count, or one that comes back
        // at once would be refused.
        for (const auto& each : clients_) {
            heldByUser += each.user == user;
            const auto core = each.core.lock();
            if (!core || core->isOver())
                continue;
            ++all;
            ofUser += each.user == user;
        }
        if (clients_.size() >= 2 * limits_.all || heldByUser >= 2 * limits_.ofOneUser)
            return false;
        const bool isUserFull = ofUser >= limits_.ofOneUser;
        const auto kept = ofUser < limits_.hardlyAny ? 0 : limits_.kept;
        if (!isUserFull && all + kept < limits_.all)
            return true;
        auto since = std::chrono::steady_clock::now() - limits_.idleTime;
        for (const auto& each : clients_) {
            auto core = each.core.lock();
            const auto began =
                core && (!isUserFull || each.user == user) ? core->idleSince() : std::nullopt;
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

std::shared_ptr<ClientAccount> ServedClients::accountOf(std::int64_t user) {
    const std::lock_guard lock(mutex_);
    std::erase_if(accounts_, [](const auto& each) { return each.second.expired(); });
    auto& known = accounts_[user];
    auto account = known.lock();
    if (!account) {
        account =
            std::make_shared<ClientAccount>(ClientAccount::Limits{.memory = limits::memoryOfOneUser,
                                                                  .places = limits::placesOfOneUser,
                                                                  .memoryOfAll = memory_,
                                                                  .placesOfAll = places_},
                                            user);
        known = account;
    }
    return account;
}

std::uint64_t ServedClients::newNumber() {
    const std::lock_guard lock(mutex_);
    return ++lastNumber_;
}

void ServedClients::add(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection,
                        const std::shared_ptr<NSXPCConnection::Core>& core, std::int64_t user) {
    const std::lock_guard lock(mutex_);
    clients_.push_back({number, user, core, connection, nullptr});
}

void ServedClients::keep(std::uint64_t number, const std::shared_ptr<NSXPCConnection>& connection) {
    const std::lock_guard lock(mutex_);
    const auto found = find(number);
    if (found != clients_.end())
        found->kept = connection;
}

void ServedClients::remove(std::uint64_t number) {
    std::shared_ptr<NSXPCConnection> removed;
    const std::lock_guard lock(mutex_);
    const auto found = find(number);
    if (found == clients_.end())
        return;
    removed = std::move(found->kept);
    clients_.erase(found);
    if (clients_.empty()) {
        idleSince_ = std::chrono::steady_clock::now();
        none_.notify_all();
    }
}

bool ServedClients::beginAccepting() {
    const std::lock_guard lock(mutex_);
    if (!closed_)
        ++accepting_;
    return !closed_;
}

void ServedClients::endAccepting() {
    const std::lock_guard lock(mutex_);
    if (--accepting_ == 0 && closed_)
        closing_.notify_all();
}

void ServedClients::waitUntilClosedOrIdle(std::chrono::seconds timeout) {
    std::unique_lock lock(mutex_);
    while (!closed_) {
        // A client that is here now leaves now at the earliest, so that nobody has to wake this.
        const auto now = std::chrono::steady_clock::now();
        const bool idle = accepting_ == 0 && clients_.empty();
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

bool ServedClients::isClosed() {
    const std::lock_guard lock(mutex_);
    return closed_;
}

void ServedClients::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    closing_.notify_all();
}

void ServedClients::waitUntilNone() {
    std::unique_lock lock(mutex_);
    none_.wait(lock, [&] { return clients_.empty(); });
}

void ServedClients::invalidateAll() {
    std::vector<Client> all;
    {
        const std::lock_guard lock(mutex_);
        all = clients_;
    }
    for (const auto& client : all) {
        if (const auto connection = client.connection.lock())
            connection->invalidate();
    }
}

std::vector<ServedClients::Client>::iterator ServedClients::find(std::uint64_t number) {
    return std::find_if(clients_.begin(), clients_.end(),
                        [&](auto& client) { return client.number == number; });
}

}  // namespace morvane
