#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>

#include <algorithm>
#include <utility>

namespace morvane {
namespace {

/// As many as one call of the stream takes with profit; two for each message.
constexpr std::size_t maxPieces = 128;
/// Collected this much, it is sent although more replies may follow.
constexpr std::size_t heldBackBytes = std::size_t{128} << 10;

}  // namespace

Outbox::Outbox(std::shared_ptr<StreamSocket> socket) : socket_(std::move(socket)) {}

void Outbox::send(FrameKind kind, std::uint64_t id, std::string_view selector, NSData body) {
    const auto shared = std::make_shared<const NSData>(std::move(body));
    const std::lock_guard lock(mutex_);
    if (ended_)
        return;
    if (shared->size() + selector.size() > limits::messageSize ||
        bytes_ + shared->size() > limits::outgoingBytes) {
        giveUp();
        return;
    }
    std::size_t offset = 0;
    do {
        auto& item = items_.emplace_back();
        const std::size_t room = limits::frameSize - selector.size();
        item.body = shared;
        item.bodyOffset = offset;
        item.bodyLength = std::min(room, shared->size() - offset);
        offset += item.bodyLength;
        FrameHeader header;
        header.kind = kind;
        header.id = id;
        header.moreFollows = offset < shared->size();
        header.selectorLength = static_cast<std::uint8_t>(selector.size());
        header.payloadLength = static_cast<std::uint32_t>(selector.size() + item.bodyLength);
        const auto bytes = header.bytes();
        auto* end = std::copy(bytes.begin(), bytes.end(), item.prefix.begin());
        end = std::copy(selector.begin(), selector.end(), end);
        item.prefixLength = static_cast<std::size_t>(end - item.prefix.begin());
        selector = {};
        bytes_ += item.length();
    } while (offset < shared->size());
    if (!draining_ && (holder_ != std::this_thread::get_id() || bytes_ > heldBackBytes))
        flush();
}

void Outbox::holdBack() {
    const std::lock_guard lock(mutex_);
    holder_ = std::this_thread::get_id();
}

void Outbox::release() {
    const std::lock_guard lock(mutex_);
    holder_ = {};
    if (!draining_ && !items_.empty())
        flush();
}

void Outbox::flush() {
    while (!items_.empty()) {
        std::array<StreamSocket::Bytes, maxPieces> pieces;
        std::size_t count = 0;
        for (const auto& item : items_) {
            if (count + 2 > maxPieces)
                break;
            const auto prefixSent = std::min(item.sent, item.prefixLength);
            const auto bodySent = item.sent - prefixSent;
            if (prefixSent < item.prefixLength) {
                pieces[count++] = {item.prefix.data() + prefixSent, item.prefixLength - prefixSent};
            }
            if (bodySent < item.bodyLength) {
                pieces[count++] = {item.body->data() + item.bodyOffset + bodySent,
                                   item.bodyLength - bodySent};
            }
        }
        auto sent = socket_->send(std::span(pieces).first(count));
        if (!sent) {
            giveUp();
            return;
        }
        if (*sent == 0) {
            draining_ = true;
            runOnWorker([self = shared_from_this()] { self->drain(); });
            return;
        }
        bytes_ -= *sent;
        while (*sent > 0) {
            auto& item = items_.front();
            const auto part = std::min(*sent, item.length() - item.sent);
            item.sent += part;
            *sent -= part;
            if (item.sent == item.length())
                items_.pop_front();
        }
    }
}

void Outbox::drain() {
    const auto deadline = std::chrono::steady_clock::now() + limits::frameTime;
    const bool writable = socket_->waitUntilWritable(deadline);
    const std::lock_guard lock(mutex_);
    draining_ = false;
    if (ended_)
        return;
    if (writable) {
        flush();
    } else {
        giveUp();
    }
}

void Outbox::giveUp() {
    ended_ = true;
    items_.clear();
    bytes_ = 0;
    socket_->shutdown();
}

}  // namespace morvane
