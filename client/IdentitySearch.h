// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <chrono>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace morvane {

/// Finds users and groups by what was typed. The user database is asked on a thread of its own, as
/// a directory on the network may be slow, or not answer.
class IdentitySearch : public std::enable_shared_from_this<IdentitySearch> {
  public:
    using Identities = std::vector<CBIdentityRef>;

    IdentitySearch();

    /// Calls `reply` once, on any thread: when the search has ended, or as soon as it is cancelled.
    /// Throws std::system_error if no thread can be started.
    void find(std::string text, const std::stop_token& stop,
              std::function<void(Result<Identities>)> reply);

  private:
    Identities found(const std::string& text);
    const Identities& all();

    const std::shared_ptr<DispatchQueue> queue_;
    // Used on the queue.
    Identities all_;
    std::chrono::steady_clock::time_point goodUntil_;
};

}  // namespace morvane
