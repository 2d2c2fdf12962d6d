#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>

#include <memory>
#include <mutex>

namespace morvane {

/// The half of a connection that serves: what becomes of the requests that its peer sends. Any
/// thread.
class ReceivedRequests {
  public:
    /// What the peer may send; set before the connection is resumed.
    std::shared_ptr<NSXPCInterface> interface;
    /// What one request may unfold into.
    NSDecodingBudget decoding;
    /// Asked about each request before any of its arguments is decoded; empty: all are carried out.
    NSXPCConnection::Admission admission;

    void setObject(std::shared_ptr<void> object);
    std::shared_ptr<void> object() const;
    /// Decodes the request and has the exported object carry it out; the answer goes to `outbox`.
    void handle(const Message& message, const std::shared_ptr<Outbox>& outbox) const;

  private:
    mutable std::mutex mutex_;
    std::shared_ptr<void> object_;
};

}  // namespace morvane
