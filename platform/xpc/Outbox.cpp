// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/Outbox.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace morvane {
namespace {

/// More pieces would not make one call of the stream cheaper.
constexpr std::size_t maxPieces = 64;
/// Once this much was collected it is sent, although more replies may follow.
constexpr std::size_t heldBackBytes = std::size_t{128} << 10;
/// Bodies of up to this size are copied behind their header; larger ones are sent from where they
/// are.
constexpr std::size_t smallBody = std::size_t{16} << 10;
/// Small frames are put together to pieces of at most this size.
constexpr std::size_t framesBytes = std::size_t{64} << 10;

/// A header and a selector, ready to be sent.
class Prefix {
  public:
    Prefix(FrameHeader header, std::string_view selector, std::size_t bodyLength) {
        header.selectorLength = static_cast<std::uint8_t>(selector.size());
        header.payloadLength = static_cast<std::uint32_t>(selector.size() + bodyLength);
        const auto first = header.bytes();
        auto* end = std::copy(first.begin(), first.end(), bytes_.begin());
        end = std::copy(selector.begin(), selector.end(), end);
        length_ = static_cast<std::size_t>(end - bytes_.begin());
    }
    StreamSocket::Bytes bytes() const { return {bytes_.data(), length_}; }
    /// Copies the body behind it, if that is small enough, so that the frame is sent as one part.
    bool append(StreamSocket::Bytes body) {
        if (body.size() > bodyCopied)
            return false;
        std::copy(body.begin(), body.end(), bytes_.begin() + length_);
        length_ += body.size();
        return true;
    }

  private:
    static constexpr std::size_t bodyCopied = 1024;

    std::array<std::uint8_t, FrameHeader::size + 255 + bodyCopied> bytes_;
    std::size_t length_;
};

}  // namespace

Outbox::Outbox(std::shared_ptr<StreamSocket> socket) : Outbox(std::move(socket), Limits()) {}

Outbox::Outbox(std::shared_ptr<StreamSocket> socket, Limits limits)
    : socket_(std::move(socket)), limits_(std::move(limits)) {}

Outbox::~Outbox() {
    if (limits_.shared)
        limits_.shared->giveBack(counted_);
}

void Outbox::send(FrameKind kind, std::uint64_t id, std::string_view selector,
                  NSDataPieces body) noexcept {
    const std::lock_guard lock(mutex_);
    if (ended_)
        return;
    try {
        if (const auto why = whyNot(body.size() + selector.size()); why.empty()) {
            sendNow(kind, id, selector, std::move(body));
        } else if (kind == FrameKind::reply && bytes_ + why.size() <= limits_.bytes) {
            body = {};
            sendNow(FrameKind::refusal, id, {}, NSData(why.begin(), why.end()));
        } else {
            giveUp();
        }
    } catch (const std::exception&) {
        giveUp();  // no memory for it
    }
}

std::string Outbox::whyNot(std::size_t size) const {
    if (size > limits::messageSize)
        return phrase("The reply is larger than %1 bytes; ask for fewer items at a time.",
                      limits::messageSize)
            .code();
    if (bytes_ + size > limits_.bytes)
        return phrase("More than %1 bytes of replies wait to be taken; take them, then ask again.",
                      limits_.bytes)
            .code();
    return {};
}

void Outbox::sendNow(FrameKind kind, std::uint64_t id, std::string_view selector,
                     NSDataPieces body) {
    FrameHeader header;
    header.kind = kind;
    header.id = id;
    // A large body is counted before it is held.
    if (body.size() > smallBody && limits_.shared) {
        const auto frames = body.size() / (limits::frameSize - selector.size()) + 1;
        const auto size = body.size() + selector.size() + frames * FrameHeader::size;
        if (!limits_.shared->take(size)) {
            const std::string_view why =
                translatable("Requests and replies take too much memory; ask again later.");
            if (kind == FrameKind::reply)
                sendNow(FrameKind::refusal, id, {}, NSData(why.begin(), why.end()));
            else
                giveUp();
            return;
        }
        counted_ += size;
    }
    if (body.size() <= smallBody && body.others.empty()) {
        sendSmall(header, selector, body.first);
    } else {
        collectLarge(header, selector, std::move(body));
    }
    if (!draining_ && (!isHeldBack() || bytes_ > heldBackBytes))
        flush();
    // If that is too much, it is sent now: what was only collected need not wait.
    if (!count() && !draining_)
        flush();
    if (!count())
        giveUp();
}

bool Outbox::count() {
    if (!limits_.shared || counted_ == bytes_)
        return true;
    if (counted_ > bytes_) {
        limits_.shared->giveBack(counted_ - bytes_);
    } else if (!limits_.shared->take(bytes_ - counted_)) {
        return false;
    }
    counted_ = bytes_;
    return true;
}

void Outbox::refuse(std::uint64_t id, std::string_view reason) noexcept {
    reason = reason.substr(0, limits::refusalText);
    try {
        send(FrameKind::refusal, id, {}, NSData(reason.begin(), reason.end()));
    } catch (const std::exception&) {
        const std::lock_guard lock(mutex_);
        giveUp();  // so the peer learns at least that nothing more comes
    }
}

void Outbox::sendSmall(FrameHeader header, std::string_view selector, StreamSocket::Bytes body) {
    Prefix prefix(header, selector, body.size());
    const bool isWhole = prefix.append(body);
    const std::array bytes = {prefix.bytes(), body};
    const auto parts = std::span(bytes).first(isWhole ? 1 : 2);
    std::size_t sent = 0;
    if (pieces_.empty() && !isHeldBack()) {
        const auto count = socket_->send(parts);
        if (!count) {
            giveUp();
            return;
        }
        sent = *count;
    }
    for (const auto part : parts) {
        const auto skipped = std::min(sent, part.size());
        append(part.subspan(skipped));
        sent -= skipped;
    }
}

void Outbox::collectLarge(FrameHeader header, std::string_view selector, NSDataPieces body) {
    auto left = body.size();
    std::size_t leftOfFrame = 0;
    const auto collect = [&](NSData&& data) {
        const auto shared = std::make_shared<const NSData>(std::move(data));
        for (std::size_t begin = 0; begin < shared->size();) {
            if (leftOfFrame == 0) {
                leftOfFrame = std::min(limits::frameSize - selector.size(), left);
                left -= leftOfFrame;
                header.moreFollows = left != 0;
                append(Prefix(header, selector, leftOfFrame).bytes());
                selector = {};
            }
            const auto end = std::min(begin + leftOfFrame, shared->size());
            pieces_.push_back({{}, shared, begin, end});
            bytes_ += end - begin;
            leftOfFrame -= end - begin;
            begin = end;
        }
    };
    collect(std::move(body.first));
    for (auto& data : body.others)
        collect(std::move(data));
}

void Outbox::append(StreamSocket::Bytes bytes) {
    if (bytes.empty())
        return;
    if (pieces_.empty() || pieces_.back().body || pieces_.back().end + bytes.size() > framesBytes) {
        pieces_.push_back({std::exchange(spare_, {}), nullptr});
    }
    auto& piece = pieces_.back();
    piece.frames.insert(piece.frames.end(), bytes.begin(), bytes.end());
    piece.end += bytes.size();
    bytes_ += bytes.size();
}

void Outbox::holdBack() {
    const std::lock_guard lock(mutex_);
    holder_ = std::this_thread::get_id();
}

void Outbox::release() noexcept {
    const std::lock_guard lock(mutex_);
    holder_ = {};
    if (!draining_)
        flush();
    count();
}

void Outbox::flush() {
    if (!sendPieces())
        waitForPeer();
}

void Outbox::waitForPeer() {
    try {
        watchDeadline();
        socket_->whenWritable([self = shared_from_this()] { self->drain(); });
        draining_ = true;
    } catch (const std::exception&) {
        draining_ = false;
        giveUp();  // nothing can wait
    }
}

void Outbox::watchDeadline() {
    if (look_)
        return;
    look_.emplace(*deadline_, [weak = weak_from_this()] {
        if (const auto self = weak.lock())
            self->lookAtDeadline();
    });
}

void Outbox::lookAtDeadline() {
    const std::lock_guard lock(mutex_);
    // Another piece may be the first by now, which has more time.
    if (deadline_ && std::chrono::steady_clock::now() >= *deadline_)
        giveUp();
}

bool Outbox::sendPieces() {
    while (!pieces_.empty()) {
        std::array<StreamSocket::Bytes, maxPieces> parts;
        std::size_t count = 0;
        for (auto piece = pieces_.begin(); piece != pieces_.end() && count < maxPieces; ++piece)
            parts[count++] = piece->left();
        auto sent = socket_->send(std::span(parts).first(count));
        if (!sent) {
            giveUp();
            return true;
        }
        bytes_ -= *sent;
        for (std::size_t left = *sent; left > 0;) {
            auto& piece = pieces_.front();
            const auto part = std::min(left, piece.end - piece.begin);
            piece.begin += part;
            left -= part;
            if (piece.begin == piece.end)
                removeFirst();
        }
        if (*sent == 0) {
            if (!deadline_)
                deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;
            return false;
        }
    }
    return true;
}

void Outbox::removeFirst() {
    auto& piece = pieces_.front();
    if (!piece.body) {
        spare_ = std::move(piece.frames);
        spare_.clear();
    }
    pieces_.pop_front();
    deadline_.reset();
    look_.reset();
}

void Outbox::drain() {
    std::unique_lock lock(mutex_);
    const bool isAll = ended_ || sendPieces();
    count();
    if (!isAll)
        waitForPeer();
    if (!isAll && !ended_)
        return;
    draining_ = false;
    const auto task = std::exchange(onDrained_, nullptr);
    lock.unlock();
    if (task)
        task();
}

void Outbox::giveUp() {
    ended_ = true;
    pieces_.clear();
    bytes_ = 0;
    count();
    deadline_.reset();
    look_.reset();
    socket_->shutdown();
}

}  // namespace morvane
