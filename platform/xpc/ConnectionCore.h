#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>
#include <MorvaneOperation/platform/xpc/PendingRequests.h>
#include <MorvaneOperation/platform/xpc/ReceivedRequests.h>

#include <atomic>
#include <deque>
#include <mutex>

/// What a connection is inside: its requests, its stream of the moment, and the one thread that
/// reads it.
namespace morvane {

class NSXPCConnection::Core : public std::enable_shared_from_this<Core> {
  public:
    /// A client's connection, which gets its streams from `endpoint`.
    Core(std::string name, std::unique_ptr<ServiceEndpoint> endpoint);
    /// A service's connection to one client; invalid when the stream ends.
    Core(std::string name, std::shared_ptr<StreamSocket> socket);
    ~Core();

    const std::string& name() const { return name_; }
    /// Whether this process was forked off one that had connections; their threads stayed there.
    static bool isForeign() { return processGeneration() != 0; }

    // Configuration; before resume().
    std::shared_ptr<NSXPCInterface> remoteInterface;
    /// What is done with the peer's requests.
    ReceivedRequests requests;
    /// What the peer's messages may use.
    FrameReader::Limits incoming;

    void setInterruptionHandler(Handler handler);
    void setInvalidationHandler(Handler handler);
    bool hasInvalidationHandler() const;

    void resume();
    /// Whether resume() or invalidate() was called.
    bool isInUse() const;
    void invalidate();
    void sendRequest(std::size_t message, NSData archive,
                     std::unique_ptr<NSXPCReplyReceiver> receiver);
    PeerCredentials peer() const;
    std::uint64_t peerStartTime() const;

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
        /// There is a stream, and a thread that reads it.
        streaming,
        /// The stream has ended, which is being reported.
        reportingEnd,
        invalid,
    };
    struct Deferred {
        std::size_t message;
        NSData archive;
        std::unique_ptr<NSXPCReplyReceiver> receiver;
    };

    bool mustWait() const {
        return state_ == State::configuring || state_ == State::connecting ||
               state_ == State::reportingEnd;
    }
    void connect();
    /// Sends what has waited, if it can be sent by now. Each request is either in flight or still
    /// waiting, so that the end of the connection, whenever it comes, ends it before it is
    /// reported.
    void sendDeferred();
    /// Sends on `socket` from now on; the result reads it until it ends, and has to be run.
    std::function<void()> useStream(std::shared_ptr<StreamSocket> socket);
    void read(const std::shared_ptr<StreamSocket>& socket, const std::shared_ptr<Outbox>& outbox);
    /// Has another thread read a stream, or the one that has just accepted it.
    static void startReading(std::function<void()> reading, StreamSocket& stream);
    void handleReply(const Message& message);
    void streamEnded();
    /// On another thread if one can be had.
    void startReportingInvalid(std::deque<Deferred> deferred);
    void reportInvalid(std::deque<Deferred> deferred);
    NSErrorRef invalidError() const;

    const std::string name_;
    const std::unique_ptr<ServiceEndpoint> endpoint_;

    mutable std::mutex mutex_;
    State state_ = State::configuring;
    std::shared_ptr<StreamSocket> socket_;
    std::shared_ptr<Outbox> outbox_;
    PendingRequests pending_;
    std::deque<Deferred> deferred_;
    unsigned endsWithoutAnswer_ = 0;
    NSErrorRef whyInvalid_;
    Handler interruptionHandler_;
    Handler invalidationHandler_;
    std::atomic<bool> invalidated_ = false;
};

}  // namespace morvane
