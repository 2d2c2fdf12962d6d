// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace morvane {

/// Observes the progress of a request; the thread that carries it out makes the calls.
class RequestTurn {
  public:
    /// The right to the request is about to be checked, which may take long. The message is not
    /// needed meanwhile.
    virtual void isAsked() = 0;
    /// The request is decoded, and its handler is about to run.
    virtual void hasBegun() = 0;

  protected:
    ~RequestTurn() = default;
};

/// The serving half of a connection, which carries out the requests that its peer sends. It may be
/// used on any thread.
class ReceivedRequests {
  public:
    /// The protocol that the peer may use, to be set before the connection is resumed.
    std::shared_ptr<NSXPCInterface> interface;
    /// The bytes and objects into which one request may be decoded.
    NSDecodingBudget decoding;
    /// The budget that requests take from when they are decoded until they are finished; null for
    /// no limit.
    std::shared_ptr<SharedBudget> memory;
    /// Decides on each request before any of its arguments is decoded; if empty, all requests are
    /// carried out.
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

    /// Returns null if the peer waits for too many replies already; the request is then answered
    /// with a refusal.
    std::shared_ptr<Port> accept(std::uint64_t id, const std::shared_ptr<Outbox>& outbox) const;
    std::optional<std::size_t> indexOf(std::string_view selector) const;
    /// Returns whether the request is admitted; otherwise it is answered with the error.
    bool asks(const NSXPCMessageDescription& message, const std::shared_ptr<Port>& port) const;

    mutable std::mutex mutex_;
    std::shared_ptr<void> object_;
};

}  // namespace morvane
