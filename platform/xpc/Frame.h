// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/StreamSocket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

/// The units of a connection's byte stream: a checked header, then its payload. A message is one
/// frame, or several of which all but the last say that more follows.
namespace morvane {

enum class FrameKind : std::uint8_t {
    /// A selector, then the archive of the arguments.
    request = 1,
    /// The archive of the reply's arguments.
    reply = 2,
    /// There will be no reply; the payload says why, for people.
    refusal = 3,
};

struct FrameHeader {
    static constexpr std::size_t size = 24;
    using Bytes = std::array<std::uint8_t, size>;

    FrameKind kind = FrameKind::request;
    bool moreFollows = false;
    /// Of a request's first frame; 0 in all others.
    std::uint8_t selectorLength = 0;
    std::uint32_t payloadLength = 0;
    /// The request's number, its sender's choice; a reply has that of its request.
    std::uint64_t id = 0;

    Bytes bytes() const;
    /// Empty if the bytes are no header, or break a limit.
    static std::optional<FrameHeader> parse(std::span<const std::uint8_t> bytes);
};

/// A whole message, as views into the reader.
struct Message {
    FrameKind kind;
    std::uint64_t id;
    std::string_view selector;
    NSDataView body;
    /// It came through the parser's gate.
    bool wasAdmitted = false;
};

/// What several may use together, in bytes or whatever is counted. Any thread.
class SharedBudget {
  public:
    /// What is taken is taken from `whole` as well; null for no other limit.
    explicit SharedBudget(std::size_t most, std::shared_ptr<SharedBudget> whole = nullptr)
        : left_(most), whole_(std::move(whole)) {}
    /// False, and nothing is taken, if there are not as many.
    bool take(std::size_t count) {
        auto left = left_.load();
        do {
            if (count > left)
                return false;
        } while (!left_.compare_exchange_weak(left, left - count));
        if (!whole_ || whole_->take(count))
            return true;
        left_ += count;
        return false;
    }
    void giveBack(std::size_t count) {
        left_ += count;
        if (whole_)
            whole_->giveBack(count);
    }

  private:
    std::atomic<std::size_t> left_;
    const std::shared_ptr<SharedBudget> whole_;
};

/// Cuts the bytes of a stream into messages as they come. One thread at a time.
class FrameParser {
  public:
    struct Limits {
        /// From a frame's first byte to its last, and for another frame of a message from the end
        /// of the one before.
        std::chrono::milliseconds frameTime = limits::frameTime;
        std::size_t messageSize = limits::messageSize;
        /// A message up to this size, header included, is held in the buffer.
        std::size_t bufferSize = std::size_t{64} << 10;
        /// What the messages that do not fit into the buffer are taken from, until they are
        /// released; null for no limit but their size.
        std::shared_ptr<SharedBudget> shared = nullptr;
    };
    /// Decides on the messages that do not fit into the buffer, before they are held. What is not
    /// received is read over.
    class Gate {
      public:
        /// Whether to receive the request, of which only the selector is known.
        virtual bool admits(std::uint64_t id, std::string_view selector) = 0;
        /// Whether to receive the reply: somebody waits for one of that number.
        virtual bool expects(std::uint64_t id) = 0;
        /// There is no room for the request, which is read over; `reason` is for people.
        virtual void refuses(std::uint64_t id, const std::string& reason) = 0;

      protected:
        ~Gate() = default;
    };

    /// Without a gate every request is received for which there is room, and one for which there is
    /// none breaks the stream. The gate has to outlive this.
    explicit FrameParser(Limits limits, Gate* gate = nullptr);
    ~FrameParser();
    FrameParser(const FrameParser&) = delete;
    FrameParser& operator=(const FrameParser&) = delete;

    /// Where the next bytes of the stream go; throws std::bad_alloc.
    std::span<std::uint8_t> room();
    /// That many were put there.
    void add(std::size_t count);
    /// The next message, if it is here whole; its views hold until the next call or release().
    std::optional<Message> next();
    /// Gives back what the last message was held in.
    void release();
    /// Gives the buffer back if there is nothing in it.
    void releaseBuffer();
    /// The peer has broken the rules; there will be no further message.
    bool isBroken() const { return broken_; }
    /// Whether the next message is here already, whole, and fits into the buffer.
    bool hasMessageWaiting() const;
    /// When what has begun to arrive must be here; empty between messages. Counts from the first
    /// call that finds it incomplete.
    StreamSocket::Deadline deadline();

  private:
    /// Bytes that are not set before they are received, and that grow without being copied where
    /// the system can move pages.
    class Bytes {
      public:
        ~Bytes() { release(); }
        Bytes() = default;
        Bytes(const Bytes&) = delete;
        Bytes& operator=(const Bytes&) = delete;

        std::span<std::uint8_t> all() const { return {data_, size_}; }
        std::size_t capacity() const { return capacity_; }
        /// Throws std::bad_alloc. `inLargePages`: there will be several megabytes, for which memory
        /// may be taken that is not in the heap.
        void resize(std::size_t size, bool inLargePages = false) {
            inLargePages = isInLargePages_ || (inLargePages && size_ == 0);
            if (size > capacity_ || inLargePages != isInLargePages_)
                reserve(std::max(size, capacity_ * 2), inLargePages);
            size_ = size;
        }
        void release();

      private:
        void reserve(std::size_t capacity, bool inLargePages);

        std::uint8_t* data_ = nullptr;
        std::size_t size_ = 0;
        std::size_t capacity_ = 0;
        bool isInLargePages_ = false;
    };

    std::span<const std::uint8_t> waiting() const {
        return buffer_.all().subspan(begin_, end_ - begin_);
    }
    /// The rest of a frame's payload is received to where it stays.
    bool receivesPayload() const { return isLarge_ && !isDropped_ && left_ != 0 && begin_ == end_; }
    /// Takes what the buffer has of the payload. True once the frame is complete.
    bool takePayload();
    bool openFrame(const FrameHeader& header);
    bool takeRoom(const FrameHeader& header);
    void giveRoomBack();
    std::optional<Message> breakOff() {
        broken_ = true;
        return std::nullopt;
    }

    const Limits limits_;
    Gate* const gate_;
    Bytes buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    /// A message that does not lie whole in the buffer, and how much of it is here.
    Bytes assembled_;
    std::size_t filled_ = 0;
    /// Of the shared bytes.
    std::size_t taken_ = 0;
    /// Such a message is on its way; its first header, and what is due of the present frame.
    bool isLarge_ = false;
    FrameHeader first_;
    bool moreFollows_ = false;
    std::size_t left_ = 0;
    /// It is read over.
    bool isDropped_ = false;
    bool broken_ = false;
    StreamSocket::Deadline deadline_;
};

/// Reads messages from a stream, which it does not own, and waits for them.
class FrameReader {
  public:
    using Limits = FrameParser::Limits;

    explicit FrameReader(StreamSocket& socket) : FrameReader(socket, Limits()) {}
    FrameReader(StreamSocket& socket, Limits limits)
        : socket_(socket), parser_(std::move(limits)) {}

    /// Waits for the next message; its views hold until the next call. Empty when the stream has
    /// ended, or the peer broke the rules or took too long.
    std::optional<Message> next();
    bool hasMessageWaiting() const { return parser_.hasMessageWaiting(); }

  private:
    StreamSocket& socket_;
    FrameParser parser_;
};

}  // namespace morvane
