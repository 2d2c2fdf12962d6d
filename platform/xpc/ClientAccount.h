// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <cstdint>
#include <memory>

namespace morvane {

/// Counts what all connections of one user use together. It may be used on any thread.
struct ClientAccount {
    struct Limits {
        /// The bytes of decoded requests and of what waits to be sent.
        std::size_t memory;
        /// The threads that carry out its requests.
        std::size_t places;
        /// The bytes of messages that are being received.
        std::size_t received = limits::clientMessagesOfOneUser;
        /// The budgets of all users together, from which the bytes and the threads are taken as
        /// well.
        std::shared_ptr<SharedBudget> memoryOfAll = nullptr;
        std::shared_ptr<SharedBudget> placesOfAll = nullptr;
    };

    explicit ClientAccount(const Limits& limits, std::int64_t whose = -1)
        : user(whose),
          memory(limits.memory, limits.memoryOfAll),
          places(limits.places, limits.placesOfAll),
          received(limits.received, limits.memoryOfAll) {}

    /// Pointers to one budget of an account, which keep the account.
    static std::shared_ptr<SharedBudget> memoryOf(const std::shared_ptr<ClientAccount>& account) {
        return {account, &account->memory};
    }
    static std::shared_ptr<SharedBudget> receivedOf(const std::shared_ptr<ClientAccount>& account) {
        return {account, &account->received};
    }

    const std::int64_t user;
    SharedBudget memory;
    SharedBudget places;
    SharedBudget received;
    /// Reports the ends of those connections that find no thread free: clients must not cause
    /// further threads by leaving.
    const std::shared_ptr<LastingLane> ends = std::make_shared<LastingLane>();
};

}  // namespace morvane
