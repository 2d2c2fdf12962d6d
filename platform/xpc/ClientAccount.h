#pragma once

#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

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
    };

    explicit ClientAccount(const Limits& limits)
        : memory(limits.memory), places(limits.places), received(limits.received) {}

    /// Aliases of an account, for who needs no more of it.
    static std::shared_ptr<SharedBudget> memoryOf(const std::shared_ptr<ClientAccount>& account) {
        return {account, &account->memory};
    }
    static std::shared_ptr<SharedBudget> receivedOf(const std::shared_ptr<ClientAccount>& account) {
        return {account, &account->received};
    }

    SharedBudget memory;
    SharedBudget places;
    SharedBudget received;
};

}  // namespace morvane
