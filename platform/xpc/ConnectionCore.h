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

/// The inside of a connection: its requests, its current stream, and the one thread that reads it.
///
/// An accepted request is always in exactly one of three lists: it waits to be sent, it is in
/// flight, or it was refused and its error handler has not run yet. Leaving a list needs no memory,
/// so that a request ends whatever fails on the way.
namespace morvane {

class ServedStream;

class NSXPCConnection::Core : public LastingTask, public std::enable_shared_from_this<Core> {
  public:
    /// A client's connection, which gets its streams from `endpoint`. Both throw if the process can
    /// have no thread for its connections.
    Core(std::string name, std::unique_ptr<ServiceEndpoint> endpoint);
    /// A service's connection to one client, which becomes invalid when the stream ends.
    Core(std::string name, std::shared_ptr<StreamSocket> socket);
    ~Core() override;

    const std::string& name() const { return name_; }
    /// Whether this process was forked from one that had connections, whose threads do not exist
    /// here.
    static bool isForeign() { return processGeneration() != 0; }

    // The configuration, to be made before resume().
    std::shared_ptr<NSXPCInterface> remoteInterface;
    /// Carries out the peer's requests.
    ReceivedRequests requests;
    /// The limits of the peer's messages.
    FrameReader::Limits incoming;
    /// The account to which its requests are charged; null for a private service, whose application
    /// is trusted.
    std::shared_ptr<ClientAccount> account;

    void setInterruptionHandler(Handler handler);
    void setInvalidationHandler(Handler handler);
    bool hasInvalidationHandler() const;

    /// From now on each request that has not ended keeps `owner`.
    void resume(const std::shared_ptr<NSXPCConnection>& owner);
    /// Whether resume() or invalidate() was called.
    bool isInUse() const;
    void invalidate();
    /// Called when nobody holds the connection any more and all requests have ended. Ends it
    /// without running any of its handlers.
    void letGo();
    /// Throws if there is no memory for the request, which is then not accepted.
    void sendRequest(std::size_t message, NSData archive,
                     std::unique_ptr<NSXPCReplyReceiver> receiver,
                     std::shared_ptr<NSXPCConnection> owner);
    std::optional<PeerCredentials> peer() const;
    std::uint64_t peerStartTime() const;

    /// For a service's connection: whether its client has disconnected, and since when it has sent
    /// nothing and waited for nothing; empty while a request is served.
    bool isOver() const;
    std::optional<std::chrono::steady_clock::time_point> idleSince() const;

    /// Called after the invalidation handler has run; the listener sets it.
    Handler onEnd;

  private:
    enum class State : std::uint8_t {
        /// resume() was not called yet.
        configuring,
        /// The connection is resumed; a stream is made when there is something to send.
        idle,
        /// One thread makes a stream, without holding a lock.
        connecting,
        /// There is a stream and a thread that reads it. Another thread sends the requests that
        /// have waited; later requests wait behind these, to keep their order.
        catchingUp,
        /// There is a stream and a thread that reads it.
        streaming,
        /// The stream has ended, which is being reported.
        reportingEnd,
        invalid,
    };
    struct Waiting {
        PendingRequests::Request request;
        NSData archive;
        /// Why a refused request is not sent.
        NSErrorRef error;
    };
    using WaitingRequests = std::list<Waiting>;

    // The functions below send requests.

    std::function<void()> reader(std::shared_ptr<StreamSocket> stream,
                                 std::shared_ptr<Outbox> outbox);
    void connect();
    /// Called if `stream` is null or cannot be used, with the lock held.
    void cannotConnect(std::shared_ptr<StreamSocket> stream, NSErrorRef reason,
                       const NSErrorRef& notNow);
    /// Sends the requests that have waited, in their order.
    void catchUp(const std::shared_ptr<Outbox>& outbox);
    std::string_view selectorOf(const PendingRequests::Request& request) const;
    /// Returns why another request would not be accepted, or null if it would. To be called with
    /// the lock held.
    NSErrorRef refusal() const;

    // The functions below read the stream.

    /// Has the stream read by another thread, or by the one that has just accepted it. If no thread
    /// can read it, its end is reported.
    void startReading(std::function<void()> reading, StreamSocket& stream) noexcept;
    /// Returns the task that reads a service's connection, for which no thread waits.
    std::function<void()> serving(const std::shared_ptr<StreamSocket>& socket,
                                  const std::shared_ptr<Outbox>& outbox);
    void read(const std::shared_ptr<StreamSocket>& socket, const std::shared_ptr<Outbox>& outbox);
    void handleReply(const Message& message);
    /// Has the request's receiver read the reply. Returns why the reply cannot be used, or null if
    /// it can.
    NSErrorRef readReply(const Message& message, PendingRequests::Request& request) const;

    // The functions below refuse requests and report the end.

    /// Refuses all requests that wait to be sent. To be called with the lock held.
    void refuseWaiting(const NSErrorRef& error) noexcept;
    /// Returns the error of requests that are made once the connection is invalid.
    NSErrorRef whyRefused() const noexcept;
    void fail(PendingRequests::Request& request, const NSErrorRef& error) const noexcept;
    /// Has run() called soon on some thread.
    void startReporting() noexcept;
    /// Reports the refused requests, and the end if no reader will report it.
    void run() noexcept override;
    /// `wasRead` says that the caller has read the stream. Otherwise nothing was sent on it, or
    /// there is none.
    void end(const std::shared_ptr<StreamSocket>& stream, bool wasRead) noexcept;
    void reportEnd(bool wasRead) noexcept;
    void reportInvalidation() noexcept;

    const std::string name_;
    const std::unique_ptr<ServiceEndpoint> endpoint_;
    const std::shared_ptr<const EndErrors> endErrors_;

    /// Held while a reply, callback or handler runs, so that they run one at a time. It is locked
    /// before the other mutex, and never inside a call that the host makes.
    std::mutex turn_;
    mutable std::mutex mutex_;
    State state_ = State::configuring;
    std::shared_ptr<StreamSocket> socket_;
    std::weak_ptr<ServedStream> served_;
    std::shared_ptr<Outbox> outbox_;
    PendingRequests inFlight_;
    WaitingRequests waiting_;
    WaitingRequests refused_;
    /// Whether some thread is about to call run().
    bool reporting_ = false;
    /// Whether that thread reports the end, because no reader will.
    bool endsUnread_ = false;
    unsigned endsWithoutAnswer_ = 0;
    NSErrorRef whyInvalid_;
    std::shared_ptr<const Handler> interruptionHandler_;
    Handler invalidationHandler_;
    std::atomic<bool> invalidated_ = false;
};

}  // namespace morvane
