// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ClientAccount.h>
#include <MorvaneOperation/platform/xpc/ConnectionErrors.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>
#include <MorvaneOperation/platform/xpc/PendingRequests.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <list>
#include <mutex>

/// What a connection is inside: its requests, its stream of the moment, and the one thread that
/// reads it.
///
/// From the moment that a request is accepted it stands in exactly one of three places: it waits to
/// be sent, it is in flight, or it is refused and waits to hear so. Each is left without memory
/// being needed, so that a request ends whatever fails on the way.
namespace morvane {

class ServedStream;

class NSXPCConnection::Core : public LastingTask, public std::enable_shared_from_this<Core> {
  public:
    /// A client's connection, which gets its streams from `endpoint`. Both throw if the process can
    /// have no thread for its connections.
    Core(std::string name, std::unique_ptr<ServiceEndpoint> endpoint);
    /// A service's connection to one client; invalid when the stream ends.
    Core(std::string name, std::shared_ptr<StreamSocket> socket);
    ~Core() override;

    const std::string& name() const { return name_; }
    /// Whether this process was forked off one that had connections; their threads stayed there.
    static bool isForeign() { return processGeneration() != 0; }

    // Configuration; before resume().
    std::shared_ptr<NSXPCInterface> remoteInterface;
    /// What is done with the peer's requests.
    ReceivedRequests requests;
    /// What the peer's messages may use.
    FrameReader::Limits incoming;
    /// What its requests are counted against; null for a private service, whose application is
    /// trusted.
    std::shared_ptr<ClientAccount> account;

    void setInterruptionHandler(Handler handler);
    void setInvalidationHandler(Handler handler);
    bool hasInvalidationHandler() const;

    /// From now on a request that is under way keeps `owner`.
    void resume(const std::shared_ptr<NSXPCConnection>& owner);
    /// Whether resume() or invalidate() was called.
    bool isInUse() const;
    void invalidate();
    /// Nobody holds the connection any more, and no request is under way: ends it, and runs none of
    /// its handlers for that.
    void letGo();
    /// Throws if there is no memory to note the request, which is not accepted then.
    void sendRequest(std::size_t message, NSData archive,
                     std::unique_ptr<NSXPCReplyReceiver> receiver,
                     std::shared_ptr<NSXPCConnection> owner);
    std::optional<PeerCredentials> peer() const;
    std::uint64_t peerStartTime() const;

    /// Of a service's connection: whether its client has gone, and since when it has said nothing
    /// and waited for nothing; empty while it is served.
    bool isOver() const;
    std::optional<std::chrono::steady_clock::time_point> idleSince() const;

    /// For the listener: told after the invalidation handler has run.
    Handler onEnd;

  private:
    enum class State : std::uint8_t {
        /// Not resumed.
        configuring,
        /// Ready; a stream is made when there is something to send.
        idle,
        /// One thread makes a stream, under no lock.
        connecting,
        /// There is a stream, and a thread that reads it. Another one sends what has waited; later
        /// requests wait behind that, or they would pass it.
        catchingUp,
        /// There is a stream, and a thread that reads it.
        streaming,
        /// The stream has ended, which is being reported.
        reportingEnd,
        invalid,
    };
    struct Waiting {
        PendingRequests::Request request;
        NSData archive;
        /// Why it is not sent; of those that are refused.
        NSErrorRef error;
    };
    using WaitingRequests = std::list<Waiting>;

    // Sending.

    std::function<void()> reader(std::shared_ptr<StreamSocket> stream,
                                 std::shared_ptr<Outbox> outbox);
    void connect();
    /// `stream` is null, or cannot be used. Under the lock.
    void cannotConnect(std::shared_ptr<StreamSocket> stream, NSErrorRef reason,
                       const NSErrorRef& notNow);
    /// Sends what has waited, in its order.
    void catchUp(const std::shared_ptr<Outbox>& outbox);
    std::string_view selectorOf(const PendingRequests::Request& request) const;
    /// Why another request would not be accepted; null if it would. Under the lock.
    NSErrorRef refusal() const;

    // Reading.

    /// Has another thread read the stream, or the one that has just accepted it. If none can, its
    /// end is reported.
    void startReading(std::function<void()> reading, StreamSocket& stream) noexcept;
    /// A service's connection, which no thread waits for.
    std::function<void()> serving(const std::shared_ptr<StreamSocket>& socket,
                                  const std::shared_ptr<Outbox>& outbox);
    void read(const std::shared_ptr<StreamSocket>& socket, const std::shared_ptr<Outbox>& outbox);
    void handleReply(const Message& message);
    /// Has the receiver read it. Returns why it cannot be used; null if it can.
    NSErrorRef readReply(const Message& message, PendingRequests::Request& request) const;

    // Refusals, and the end.

    /// All that waits to be sent. Under the lock.
    void refuseWaiting(const NSErrorRef& error) noexcept;
    /// What a request hears once the connection is invalid.
    NSErrorRef whyRefused() const noexcept;
    void fail(PendingRequests::Request& request, const NSErrorRef& error) const noexcept;
    /// Has a thread run() soon.
    void startReporting() noexcept;
    /// Reports what has been refused, and the end if there is nobody else who would.
    void run() noexcept override;
    /// `wasRead`: by the caller. Otherwise nothing was sent on the stream, or there is none.
    void end(const std::shared_ptr<StreamSocket>& stream, bool wasRead) noexcept;
    void reportEnd(bool wasRead) noexcept;
    void reportInvalidation() noexcept;

    const std::string name_;
    const std::unique_ptr<ServiceEndpoint> endpoint_;
    const std::shared_ptr<const EndErrors> endErrors_;

    /// Held while a reply, callback or handler runs: one at a time. Taken before the other, never
    /// inside a call of the host's.
    std::mutex turn_;
    mutable std::mutex mutex_;
    State state_ = State::configuring;
    std::shared_ptr<StreamSocket> socket_;
    std::weak_ptr<ServedStream> served_;
    std::shared_ptr<Outbox> outbox_;
    PendingRequests inFlight_;
    WaitingRequests waiting_;
    WaitingRequests refused_;
    /// A thread will run().
    bool reporting_ = false;
    /// It will report the end: there is no reader that would.
    bool endsUnread_ = false;
    unsigned endsWithoutAnswer_ = 0;
    NSErrorRef whyInvalid_;
    std::shared_ptr<const Handler> interruptionHandler_;
    Handler invalidationHandler_;
    std::atomic<bool> invalidated_ = false;
};

}  // namespace morvane
