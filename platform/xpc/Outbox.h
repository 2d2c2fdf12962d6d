#pragma once

#include <MorvaneOperation/platform/xpc/Frame.h>

#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

/// What is on its way out on one stream. Any thread.
///
/// A message is sent at once, by the thread that sends it, as far as the stream takes it; a worker
/// sends the rest. While a thread holds the outbox back (the reader has more messages at hand whose
/// replies may go together), what that thread sends is only collected.
namespace morvane {

class Outbox : public std::enable_shared_from_this<Outbox> {
  public:
    explicit Outbox(std::shared_ptr<StreamSocket> socket);

    /// Takes the message, or gives the stream up: its limit is reached, or it has ended.
    void send(FrameKind kind, std::uint64_t id, std::string_view selector, NSData body);
    void holdBack();
    /// Sends what was collected.
    void release();

  private:
    struct Item {
        std::shared_ptr<const NSData> body;
        std::size_t bodyOffset = 0;
        std::size_t bodyLength = 0;
        /// The header and the selector.
        std::array<std::uint8_t, FrameHeader::size + 255> prefix;
        std::size_t prefixLength = 0;
        /// What was sent of both.
        std::size_t sent = 0;
        std::size_t length() const { return prefixLength + bodyLength; }
    };

    void flush();
    void drain();
    void giveUp();

    const std::shared_ptr<StreamSocket> socket_;
    std::mutex mutex_;
    std::deque<Item> items_;
    std::size_t bytes_ = 0;
    /// Who holds the outbox back; nobody if it is no thread.
    std::thread::id holder_;
    bool draining_ = false;
    bool ended_ = false;
};

}  // namespace morvane
