// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/Clock.h>
#include <MorvaneOperation/platform/xpc/Frame.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

/// The messages that are to be sent on one stream. It may be used on any thread.
///
/// The thread that sends a message writes as much of it to the stream as the stream takes. The rest
/// is written when the stream takes more, and no thread waits for that. While a thread holds the
/// outbox back, because it has more messages at hand whose replies may go together, what it sends
/// is only collected.
namespace morvane {

class Outbox : public std::enable_shared_from_this<Outbox> {
  public:
    struct Limits {
        /// How many bytes may wait to be sent.
        std::size_t bytes = limits::outgoingBytes;
        /// The time in which the peer must take a piece (a large frame, or small ones that go
        /// together). It begins when the stream first takes no more of the piece, and no progress
        /// prolongs it.
        std::chrono::milliseconds frameTime = limits::frameTime;
        /// Another budget against which the bytes that wait count; null for none.
        std::shared_ptr<SharedBudget> shared = nullptr;
    };

    explicit Outbox(std::shared_ptr<StreamSocket> socket);
    Outbox(std::shared_ptr<StreamSocket> socket, Limits limits);

    ~Outbox();

    /// Takes the message. A reply that is too large becomes a refusal, which names the limit. The
    /// stream is given up if another message is too large for the limits.
    void send(FrameKind kind, std::uint64_t id, std::string_view selector,
              NSDataPieces body) noexcept;
    /// Tells the peer that the request will have no reply, and why.
    void refuse(std::uint64_t id, std::string_view reason) noexcept;
    /// Promises an answer to one more request. Returns false, and promises nothing, if too many
    /// answers are owed already.
    bool promiseAnswer() noexcept {
        if (promised_.fetch_add(1, std::memory_order_relaxed) < limits::requestsUnanswered)
            return true;
        keepPromise();
        return false;
    }
    /// Is told that one of those answers is being sent.
    void keepPromise() noexcept { promised_.fetch_sub(1, std::memory_order_relaxed); }
    /// Returns whether the peer still has much to take. If so, the task that `makeTask` returns
    /// runs on another thread once the peer has taken all of it, or the stream has ended. There is
    /// one such task at a time.
    template <class MakeTask>
    bool waitsForPeer(MakeTask&& makeTask) {
        const std::lock_guard lock(mutex_);
        if (!draining_ || ended_ || bytes_ < limits::bytesOwedWhileReading)
            return false;
        onDrained_ = makeTask();
        return true;
    }
    bool owesAnswers() const noexcept { return promised_.load() != 0; }
    void holdBack();
    /// Sends what was collected.
    void release() noexcept;

  private:
    /// Small frames one after the other, or a part of a large body.
    struct Piece {
        NSData frames;
        std::shared_ptr<const NSData> body;
        std::size_t begin = 0;
        std::size_t end = 0;
        /// The bytes of it that are not sent yet.
        StreamSocket::Bytes left() const {
            return StreamSocket::Bytes(body ? *body : frames).subspan(begin, end - begin);
        }
    };

    void sendNow(FrameKind kind, std::uint64_t id, std::string_view selector, NSDataPieces body);
    /// Returns why a body of that size cannot be sent now; empty if it can.
    std::string whyNot(std::size_t size) const;
    /// Counts what waits against the shared budget; returns false if there is no room for it.
    bool count();
    void sendSmall(FrameHeader header, std::string_view selector, StreamSocket::Bytes body);
    void collectLarge(FrameHeader header, std::string_view selector, NSDataPieces body);
    void append(StreamSocket::Bytes bytes);
    /// Sends what waits, and has the rest sent when the stream takes more.
    void flush();
    /// Returns false if the stream takes no more for now.
    bool sendPieces();
    /// Is called when the stream takes more, or has ended.
    void drain();
    /// Has drain() called, and the first piece's time watched. The lock is held.
    void waitForPeer();
    void watchDeadline();
    void lookAtDeadline();
    void removeFirst();
    void giveUp();
    bool isHeldBack() const { return holder_ == std::this_thread::get_id(); }

    const std::shared_ptr<StreamSocket> socket_;
    const Limits limits_;
    std::atomic<std::size_t> promised_ = 0;
    std::mutex mutex_;
    std::list<Piece> pieces_;
    /// Memory of frames that were sent, to be used again.
    NSData spare_;
    std::size_t bytes_ = 0;
    /// How many of these bytes were taken from the shared budget.
    std::size_t counted_ = 0;
    std::function<void()> onDrained_;
    /// The thread that holds the outbox back, if any does.
    std::thread::id holder_;
    /// When the peer must have taken the first piece; set while the stream keeps that waiting.
    StreamSocket::Deadline deadline_;
    /// Sees to it when the time comes.
    std::optional<ClockTask> look_;
    /// Whether the stream has not taken everything, so that drain() will be called.
    bool draining_ = false;
    bool ended_ = false;
};

}  // namespace morvane
