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
};

/// Bytes that several readers may hold together. Any thread.
class SharedBytes {
  public:
    explicit SharedBytes(std::size_t most) : left_(most) {}
    /// False, and nothing is taken, if there are not as many.
    bool take(std::size_t count) {
        auto left = left_.load();
        while (count <= left) {
            if (left_.compare_exchange_weak(left, left - count))
                return true;
        }
        return false;
    }
    void giveBack(std::size_t count) { left_ += count; }

  private:
    std::atomic<std::size_t> left_;
};

/// Reads messages from a stream, which it does not own.
class FrameReader {
  public:
    struct Limits {
        /// From a frame's first byte to its last, and for another frame of a message from the end
        /// of the one before.
        std::chrono::milliseconds frameTime = limits::frameTime;
        std::size_t messageSize = limits::messageSize;
        /// What the messages that do not fit into a reader's buffer are taken from, until the next
        /// call of next(); null for no limit but their size.
        std::shared_ptr<SharedBytes> shared = nullptr;
    };

    explicit FrameReader(StreamSocket& socket);
    FrameReader(StreamSocket& socket, Limits limits);
    ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    /// Waits for the next message; its views hold until the next call. Empty when the stream has
    /// ended, or the peer broke the rules or took too long.
    std::optional<Message> next();
    /// Whether the next message is here already, whole.
    bool hasMessageWaiting() const;

    /// A request that there was no room for.
    struct Refused {
        std::uint64_t id;
        /// Why, for people.
        std::string reason;
    };
    /// Why next() has returned nothing, if it was this.
    const std::optional<Refused>& refused() const { return refused_; }

  private:
    std::span<const std::uint8_t> waiting() const {
        return buffer_.all().subspan(begin_, end_ - begin_);
    }
    std::size_t receive(std::span<std::uint8_t> into);
    bool fillBuffer(std::size_t needed);
    bool appendPayload(std::size_t length);
    bool takeRoom(const FrameHeader& first, std::size_t length);
    void giveRoomBack();

    StreamSocket& socket_;
    const Limits limits_;
    /// Bytes that are not set before they are received, and that grow without being copied where
    /// the system can move pages.
    class Bytes {
      public:
        explicit Bytes(std::size_t capacity = 0) { reserve(capacity); }
        ~Bytes() { std::free(data_); }
        Bytes(const Bytes&) = delete;
        Bytes& operator=(const Bytes&) = delete;

        std::span<std::uint8_t> all() const { return {data_, size_}; }
        std::size_t capacity() const { return capacity_; }
        /// Throws std::bad_alloc.
        void reserve(std::size_t capacity);
        void resize(std::size_t size) {
            if (size > capacity_)
                reserve(std::max(size, capacity_ * 2));
            size_ = size;
        }
        void release() {
            std::free(std::exchange(data_, nullptr));
            size_ = capacity_ = 0;
        }

      private:
        std::uint8_t* data_ = nullptr;
        std::size_t size_ = 0;
        std::size_t capacity_ = 0;
    };

    Bytes buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    /// A message that does not lie whole in the buffer.
    Bytes assembled_;
    /// Of the shared bytes.
    std::size_t taken_ = 0;
    std::optional<Refused> refused_;
    StreamSocket::Deadline deadline_;
};

}  // namespace morvane
