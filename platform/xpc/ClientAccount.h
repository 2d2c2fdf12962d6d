// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <cstdint>
#include <memory>

namespace morvane {

/// What one user's connections use together, counted until it is done with. Any thread.
struct ClientAccount {
    struct Limits {
        /// Bytes of what is decoded and what waits to be sent.
        std::size_t memory;
        /// Threads that are with its requests.
        std::size_t places;
        /// Bytes of what is being received.
        std::size_t received = limits::clientMessagesOfOneUser;
        /// What all bytes are taken from as well, and the threads, with those of all other users.
        std::shared_ptr<SharedBudget> memoryOfAll = nullptr;
        std::shared_ptr<SharedBudget> placesOfAll = nullptr;
    };

    explicit ClientAccount(const Limits& limits, std::int64_t whose = -1)
        : user(whose),
          memory(limits.memory, limits.memoryOfAll),
          places(limits.places, limits.placesOfAll),
          received(limits.received, limits.memoryOfAll) {}

    /// Aliases of an account, for who needs no more of it.
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
    /// Where the ends of those connections are reported that find no place: nobody may have threads
    /// by leaving.
    const std::shared_ptr<LastingLane> ends = std::make_shared<LastingLane>();
};

}  // namespace morvane
