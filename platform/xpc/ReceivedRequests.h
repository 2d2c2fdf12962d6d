// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace morvane {

/// Told how far a request is, by the thread that carries it out.
class RequestTurn {
  public:
    /// Its right is being asked for, which may take long. The message is not needed for that.
    virtual void isAsked() = 0;
    /// It is decoded, and its handler begins.
    virtual void hasBegun() = 0;

  protected:
    ~RequestTurn() = default;
};

/// The half of a connection that serves: what becomes of the requests that its peer sends. Any
/// thread.
class ReceivedRequests {
  public:
    /// What the peer may send; set before the connection is resumed.
    std::shared_ptr<NSXPCInterface> interface;
    /// What one request may unfold into.
    NSDecodingBudget decoding;
    /// What requests are counted against from their decoding until they are done with; null for no
    /// limit.
    std::shared_ptr<SharedBudget> memory;
    /// Asked about each request before any of its arguments is decoded; empty: all are carried out.
    NSXPCConnection::Admission admission;

    void setObject(std::shared_ptr<void> object);
    std::shared_ptr<void> object() const;
    /// Decodes the request and has the exported object carry it out; the answer goes to `outbox`.
    void handle(const Message& message, const std::shared_ptr<Outbox>& outbox,
                RequestTurn* turn = nullptr) const;
    /// Whether a request of that selector would be carried out; otherwise it is answered now.
    bool admits(std::uint64_t id, std::string_view selector,
                const std::shared_ptr<Outbox>& outbox) const;

  private:
    class Port;

    /// Null if the peer waits for too many replies already, which it is told.
    std::shared_ptr<Port> accept(std::uint64_t id, const std::shared_ptr<Outbox>& outbox) const;
    std::optional<std::size_t> indexOf(std::string_view selector) const;
    /// Whether the request is admitted; otherwise it is answered.
    bool asks(const NSXPCMessageDescription& message, const std::shared_ptr<Port>& port) const;

    mutable std::mutex mutex_;
    std::shared_ptr<void> object_;
};

}  // namespace morvane
