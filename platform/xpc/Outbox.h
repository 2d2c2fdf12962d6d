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

/// What is on its way out on one stream. Any thread.
///
/// A message is sent at once, by the thread that sends it, as far as the stream takes it. The rest
/// is sent as the stream takes more, and no thread waits for that. While a thread holds the outbox
/// back (the reader has more messages at hand whose replies may go together), what that thread
/// sends is only collected.
namespace morvane {

class Outbox : public std::enable_shared_from_this<Outbox> {
  public:
    struct Limits {
        /// Bytes that wait.
        std::size_t bytes = limits::outgoingBytes;
        /// From when the stream first takes no more of a piece (a large frame, or small ones that
        /// go together) to that piece's last byte, whatever progress there is in between.
        std::chrono::milliseconds frameTime = limits::frameTime;
        /// What the bytes that wait are taken from as well; null for no other limit.
        std::shared_ptr<SharedBudget> shared = nullptr;
    };

    explicit Outbox(std::shared_ptr<StreamSocket> socket);
    Outbox(std::shared_ptr<StreamSocket> socket, Limits limits);

    ~Outbox();

    /// Takes the message, or gives the stream up: its limit is reached, or it has ended. A reply
    /// that is too large becomes a refusal, which names the limit.
    void send(FrameKind kind, std::uint64_t id, std::string_view selector,
              NSDataPieces body) noexcept;
    /// Says that the request will have no reply, and why.
    void refuse(std::uint64_t id, std::string_view reason) noexcept;
    /// That there will be an answer to one more request. False, and no promise, if too many are
    /// owed already.
    bool promiseAnswer() noexcept {
        if (promised_.fetch_add(1, std::memory_order_relaxed) < limits::requestsUnanswered)
            return true;
        keepPromise();
        return false;
    }
    /// That answer is being sent.
    void keepPromise() noexcept { promised_.fetch_sub(1, std::memory_order_relaxed); }
    /// Whether the peer has much to take. If so, what `makeTask` returns runs on another thread
    /// once it has taken all of it, or the stream has ended. One task at a time.
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
        /// What of it is not sent yet.
        StreamSocket::Bytes left() const {
            return StreamSocket::Bytes(body ? *body : frames).subspan(begin, end - begin);
        }
    };

    void sendNow(FrameKind kind, std::uint64_t id, std::string_view selector, NSDataPieces body);
    /// Why a body of that size cannot be sent now; empty if it can.
    std::string whyNot(std::size_t size) const;
    /// Counts what waits against the shared budget. False if there is no room for it.
    bool count();
    void sendSmall(FrameHeader header, std::string_view selector, StreamSocket::Bytes body);
    void collectLarge(FrameHeader header, std::string_view selector, NSDataPieces body);
    void append(StreamSocket::Bytes bytes);
    /// Sends what waits, the rest as the stream takes it.
    void flush();
    /// False when the stream takes no more for now.
    bool sendPieces();
    /// The stream takes more, or has ended.
    void drain();
    /// Has that noticed, and that the first piece's time is over. Under the lock.
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
    /// Memory that was used for frames before.
    NSData spare_;
    std::size_t bytes_ = 0;
    /// Of them, in the shared budget.
    std::size_t counted_ = 0;
    std::function<void()> onDrained_;
    /// Who holds the outbox back; nobody if it is no thread.
    std::thread::id holder_;
    /// When the first piece must be out; set while the stream keeps it waiting.
    StreamSocket::Deadline deadline_;
    /// Looks at that.
    std::optional<ClockTask> look_;
    /// The stream does not take everything; drain() comes.
    bool draining_ = false;
    bool ended_ = false;
};

}  // namespace morvane
