// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace morvane {

class NSXPCConnection;

/// The requests of a connection that wait for their replies. The number of a request contains its
/// index in the table, and is never used again.
class PendingRequests {
  public:
    struct Request {
        std::size_t message = 0;
        std::unique_ptr<NSXPCReplyReceiver> receiver;
        /// The connection, which is kept until the request has ended.
        std::shared_ptr<NSXPCConnection> owner;
    };
    struct Entry {
        /// 0 while the entry is not in use.
        std::uint64_t id = 0;
        Request request;
    };

    std::size_t size() const { return entries_.size() - free_.size(); }

    /// Adds the request and returns its number. If there is no memory, it throws and leaves the
    /// request as it is.
    std::uint64_t add(Request&& request) {
        if (free_.empty()) {
            free_.reserve(entries_.size() + 1);  // Removing an entry then needs no memory.
            entries_.emplace_back();
            free_.push_back(entries_.size() - 1);
        }
        const auto place = free_.back();
        free_.pop_back();
        const auto id = ++count_ << placeBits | place;
        entries_[place].id = id;
        entries_[place].request = std::move(request);
        return id;
    }
    /// Whether there is a request of that number.
    bool contains(std::uint64_t id) const {
        return placeOf(id) < entries_.size() && entries_[placeOf(id)].id == id;
    }
    /// Removes the request of that number; empty if there is none, as a peer may make numbers up.
    std::optional<Request> take(std::uint64_t id) {
        if (!contains(id))
            return std::nullopt;
        const auto place = placeOf(id);
        entries_[place].id = 0;
        free_.push_back(place);
        return std::move(entries_[place].request);
    }
    /// Needs no memory.
    std::vector<Entry> takeAll() {
        free_.clear();
        return std::exchange(entries_, {});
    }

  private:
    static constexpr unsigned placeBits = 16;
    static std::size_t placeOf(std::uint64_t id) {
        return id & ((std::uint64_t{1} << placeBits) - 1);
    }
    static_assert(limits::requestsInFlight <= std::size_t{1} << placeBits);
    std::vector<Entry> entries_;
    std::vector<std::size_t> free_;
    std::uint64_t count_ = 0;
};

}  // namespace morvane
