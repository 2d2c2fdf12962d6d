// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileConnector.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace morvane {

/// Obtains the rights of a client's operations, one after the other, on a thread of its own: while
/// the system asks the user, nothing else waits. A refusal counts for every operation that was
/// begun before it came.
class ClientAuthority : public std::enable_shared_from_this<ClientAuthority> {
  public:
    ClientAuthority();

    /// The moment in which an operation begins.
    std::uint64_t now() { return ++clock_; }

    /// Obtains `right` and a connection to the helper for the operation that began at `begun`. Then
    /// `obtained` is called on a thread of the library's, with null or the reason why there is
    /// none. It is not called if `isWanted` returns false when its turn comes. Throws
    /// std::system_error if no thread can be started.
    void obtain(const char* right, std::uint64_t begun, std::shared_ptr<MVFileConnector> connector,
                std::function<bool()> isWanted, std::function<void(NSErrorRef)> obtained);

  private:
    struct Refusal {
        std::uint64_t when = 0;
        NSErrorRef error;
    };

    std::atomic<std::uint64_t> clock_ = 0;
    const std::shared_ptr<DispatchQueue> queue_;
    /// The last refusal of each right. It is used on the queue.
    std::map<std::string, Refusal> refusals_;
};

/// Why there is no connection to the helper although nothing was refused.
NSErrorRef helperMissing();

}  // namespace morvane
