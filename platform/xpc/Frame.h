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
    /// The length of the selector in a request's first frame; 0 in all other frames.
    std::uint8_t selectorLength = 0;
    std::uint32_t payloadLength = 0;
    /// The request's number, which its sender chooses; a reply has the number of its request.
    std::uint64_t id = 0;

    Bytes bytes() const;
    /// Reads a header; empty if the bytes are none, or break a limit.
    static std::optional<FrameHeader> parse(std::span<const std::uint8_t> bytes);
};

/// A whole message, whose views point into the reader's memory.
struct Message {
    FrameKind kind;
    std::uint64_t id;
    std::string_view selector;
    NSDataView body;
    /// Whether the parser's gate has admitted it.
    bool wasAdmitted = false;
};

/// An amount that several users share, in bytes or whatever else is counted. It may be used on any
/// thread.
class SharedBudget {
  public:
    /// Whatever is taken is taken from `whole` as well, unless that is null.
    explicit SharedBudget(std::size_t most, std::shared_ptr<SharedBudget> whole = nullptr)
        : left_(most), whole_(std::move(whole)) {}
    /// Takes `count`; returns false, and takes nothing, if less is left.
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

/// Cuts the bytes of a stream into messages as they come. One thread at a time uses it.
class FrameParser {
  public:
    struct Limits {
        /// The time from a frame's first byte to its last. For a later frame of a message it begins
        /// with the end of the frame before.
        std::chrono::milliseconds frameTime = limits::frameTime;
        std::size_t messageSize = limits::messageSize;
        /// A message that is at most this large, with its header, is held in the buffer.
        std::size_t bufferSize = std::size_t{64} << 10;
        /// The budget against which messages count that do not fit into the buffer, until they are
        /// released. Null means that only the size of each is limited.
        std::shared_ptr<SharedBudget> shared = nullptr;
    };
    /// Decides whether messages that do not fit into the buffer are received, before memory is
    /// taken for them. A message that is not received is skipped.
    class Gate {
      public:
        /// Returns whether to receive the request, of which only the selector is known so far.
        virtual bool admits(std::uint64_t id, std::string_view selector) = 0;
        /// Returns whether to receive the reply, that is, whether somebody waits for this number.
        virtual bool expects(std::uint64_t id) = 0;
        /// Is told that the request is skipped because there is no room for it; `reason` is for
        /// people.
        virtual void refuses(std::uint64_t id, const std::string& reason) = 0;

      protected:
        ~Gate() = default;
    };

    /// Without a gate every request is received, and one for which there is no room breaks the
    /// stream. The gate has to outlive the parser.
    explicit FrameParser(Limits limits, Gate* gate = nullptr);
    ~FrameParser();
    FrameParser(const FrameParser&) = delete;
    FrameParser& operator=(const FrameParser&) = delete;

    /// Returns the memory that takes the next bytes of the stream; throws std::bad_alloc.
    std::span<std::uint8_t> room();
    /// Is told that `count` bytes were put there.
    void add(std::size_t count);
    /// Returns the next message, if all of it is here. Its views hold until the next call or
    /// release().
    std::optional<Message> next();
    /// Gives back the memory of the last message.
    void release();
    /// Gives the buffer back if there is nothing in it.
    void releaseBuffer();
    /// Whether the peer has broken the rules, after which there are no further messages.
    bool isBroken() const { return broken_; }
    /// Whether all of the next message is here already, in the buffer.
    bool hasMessageWaiting() const;
    /// Returns when the frame that has begun to arrive must be complete; empty between messages.
    /// Its time begins with the first call that finds it incomplete.
    StreamSocket::Deadline deadline();

  private:
    /// An array of bytes whose memory is not cleared first, and which grows without being copied
    /// where the system can move pages.
    class Bytes {
      public:
        ~Bytes() { release(); }
        Bytes() = default;
        Bytes(const Bytes&) = delete;
        Bytes& operator=(const Bytes&) = delete;

        std::span<std::uint8_t> all() const { return {data_, size_}; }
        std::size_t capacity() const { return capacity_; }
        /// Throws std::bad_alloc. With `inLargePages` several megabytes are expected, whose memory
        /// need not come from the heap.
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
    /// Whether the rest of a frame's payload is received directly into the assembled message.
    bool receivesPayload() const { return isLarge_ && !isDropped_ && left_ != 0 && begin_ == end_; }
    /// Takes what the buffer has of the payload; returns true once the frame is complete.
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
    /// A message that does not fit into the buffer, and how much of it has come.
    Bytes assembled_;
    std::size_t filled_ = 0;
    /// How much was taken from the shared budget.
    std::size_t taken_ = 0;
    /// Whether such a message is being received, its first header, and how many bytes of the
    /// present frame are still to come.
    bool isLarge_ = false;
    FrameHeader first_;
    bool moreFollows_ = false;
    std::size_t left_ = 0;
    /// Whether it is skipped.
    bool isDropped_ = false;
    bool broken_ = false;
    StreamSocket::Deadline deadline_;
};

/// Waits for messages of a stream, which it does not own.
class FrameReader {
  public:
    using Limits = FrameParser::Limits;

    explicit FrameReader(StreamSocket& socket) : FrameReader(socket, Limits()) {}
    FrameReader(StreamSocket& socket, Limits limits)
        : socket_(socket), parser_(std::move(limits)) {}

    /// Waits for the next message, whose views hold until the next call. Empty if the stream has
    /// ended, or if the peer has broken the rules or taken too long.
    std::optional<Message> next();
    bool hasMessageWaiting() const { return parser_.hasMessageWaiting(); }

  private:
    StreamSocket& socket_;
    FrameParser parser_;
};

}  // namespace morvane
