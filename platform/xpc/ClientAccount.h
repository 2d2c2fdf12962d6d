#pragma once

#include <MorvaneOperation/platform/xpc/Frame.h>

#include <memory>

namespace morvane {

/// What one user's connections use together, counted until it is done with. Any thread.
struct ClientAccount {
    struct Limits {
        /// Bytes of what is received, decoded and waits to be sent.
        std::size_t memory;
        /// Threads that are with its requests.
        std::size_t places;
    };

    explicit ClientAccount(const Limits& limits) : memory(limits.memory), places(limits.places) {}

    /// Aliases of an account, for who needs no more of it.
    static std::shared_ptr<SharedBudget> memoryOf(const std::shared_ptr<ClientAccount>& account) {
        return {account, &account->memory};
    }

    SharedBudget memory;
    SharedBudget places;
};

}  // namespace morvane
