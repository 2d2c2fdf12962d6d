// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/xpc/Frame.h>
#include <MorvaneOperation/platform/xpc/Limits.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace morvane {
namespace {

constexpr std::array<std::uint8_t, 4> magic = {'M', 'V', 'X', '1'};
constexpr std::uint8_t moreFollowsFlag = 1;
/// The memory that a message of several frames is given at first. As long as nothing was written
/// to it, it takes addresses only.
constexpr std::size_t fewLargePages = 4 * largePage;

template <class T>
void put(std::uint8_t* p, T value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        p[i] = static_cast<std::uint8_t>(value >> 8 * i);
}

template <class T>
T get(const std::uint8_t* p) {
    T value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value |= static_cast<T>(p[i]) << 8 * i;
    return value;
}

std::string_view text(NSDataView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

FrameHeader::Bytes FrameHeader::bytes() const {
    Bytes bytes{};
    std::copy(magic.begin(), magic.end(), bytes.begin());
    bytes[4] = static_cast<std::uint8_t>(kind);
    bytes[5] = moreFollows ? moreFollowsFlag : 0;
    bytes[6] = selectorLength;
    put(&bytes[8], payloadLength);
    put(&bytes[16], id);
    return bytes;
}

std::optional<FrameHeader> FrameHeader::parse(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < size || !std::equal(magic.begin(), magic.end(), bytes.begin())) {
        return std::nullopt;
    }
    FrameHeader header;
    if (bytes[4] < 1 || bytes[4] > 3 || (bytes[5] & ~moreFollowsFlag) != 0 || bytes[7] != 0 ||
        get<std::uint32_t>(&bytes[12]) != 0) {
        return std::nullopt;
    }
    header.kind = static_cast<FrameKind>(bytes[4]);
    header.moreFollows = bytes[5] != 0;
    header.selectorLength = bytes[6];
    header.payloadLength = get<std::uint32_t>(&bytes[8]);
    header.id = get<std::uint64_t>(&bytes[16]);
    if (header.payloadLength > limits::frameSize || header.selectorLength > header.payloadLength ||
        (header.kind != FrameKind::request && header.selectorLength != 0) ||
        (header.kind == FrameKind::refusal &&
         (header.moreFollows || header.payloadLength > limits::refusalText))) {
        return std::nullopt;
    }
    return header;
}

void FrameParser::Bytes::reserve(std::size_t capacity, bool inLargePages) {
    if (inLargePages != isInLargePages_)
        release();  // there is nothing in it
    if (inLargePages)
        capacity = (std::max(capacity, fewLargePages) + largePage - 1) / largePage * largePage;
    void* const data = !inLargePages     ? std::realloc(data_, capacity)
                       : isInLargePages_ ? growLargeMemory(data_, capacity_, capacity)
                                         : takeLargeMemory(capacity);
    if (!data)
        throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(data);
    capacity_ = capacity;
    isInLargePages_ = inLargePages;
}

void FrameParser::Bytes::release() {
    if (isInLargePages_)
        releaseLargeMemory(data_, capacity_);
    else
        std::free(data_);
    data_ = nullptr;
    size_ = capacity_ = 0;
    isInLargePages_ = false;
}

FrameParser::FrameParser(Limits limits, Gate* gate) : limits_(std::move(limits)), gate_(gate) {}

FrameParser::~FrameParser() {
    giveRoomBack();
}

std::span<std::uint8_t> FrameParser::room() {
    if (receivesPayload())
        return assembled_.all().subspan(filled_, left_);
    buffer_.resize(limits_.bufferSize);
    if (begin_ == end_)
        begin_ = end_ = 0;
    if (end_ == limits_.bufferSize) {
        std::memmove(buffer_.all().data(), buffer_.all().data() + begin_, end_ - begin_);
        end_ -= std::exchange(begin_, 0);
    }
    return buffer_.all().subspan(end_);
}

void FrameParser::add(std::size_t count) {
    if (receivesPayload()) {
        filled_ += count;
        left_ -= count;
        if (left_ == 0)
            deadline_.reset();
    } else {
        end_ += count;
    }
}

void FrameParser::releaseBuffer() {
    if (begin_ != end_)
        return;
    begin_ = end_ = 0;
    buffer_.release();
}

void FrameParser::release() {
    if (isLarge_)
        return;  // it is not complete yet
    filled_ = 0;
    if (assembled_.capacity() > limits::frameSize) {
        assembled_.release();
    } else {
        assembled_.resize(0);
    }
    giveRoomBack();
}

bool FrameParser::takeRoom(const FrameHeader& header) {
    const auto refuse = [&](const std::string& reason) {
        if (!gate_ || first_.kind != FrameKind::request)
            return false;
        gate_->refuses(first_.id, reason);
        isDropped_ = true;
        filled_ = 0;
        assembled_.release();
        giveRoomBack();
        return true;
    };
    if (header.payloadLength > limits_.messageSize - filled_) {
        return refuse(phrase("The request is larger than %1 bytes; ask for fewer items at a time.",
                             limits_.messageSize)
                          .code());
    }
    if (limits_.shared && !limits_.shared->take(header.payloadLength))
        return refuse(translatable("Too many large requests are being handled; ask again later."));
    taken_ += header.payloadLength;
    // A stranger's message is counted by the byte, and a large page could be nearly empty.
    const bool inLargePages =
        header.moreFollows && header.payloadLength == limits::frameSize && !limits_.shared;
    assembled_.resize(filled_ + header.payloadLength, inLargePages);
    return true;
}

void FrameParser::giveRoomBack() {
    if (limits_.shared)
        limits_.shared->giveBack(std::exchange(taken_, 0));
}

bool FrameParser::hasMessageWaiting() const {
    const auto header = isLarge_ ? std::nullopt : FrameHeader::parse(waiting());
    return header && !header->moreFollows &&
           waiting().size() - FrameHeader::size >= header->payloadLength;
}

StreamSocket::Deadline FrameParser::deadline() {
    if (begin_ == end_ && !isLarge_) {
        deadline_.reset();
    } else if (!deadline_) {
        deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;
    }
    return deadline_;
}

bool FrameParser::takePayload() {
    const auto length = std::min(left_, end_ - begin_);
    if (left_ != 0 && length == left_)
        deadline_.reset();  // the next frame is due from now on
    if (length != 0 && !isDropped_) {
        std::memcpy(assembled_.all().data() + filled_, buffer_.all().data() + begin_, length);
        filled_ += length;
    }
    begin_ += length;
    left_ -= length;
    return left_ == 0;
}

/// One that does not lie whole in the buffer.
bool FrameParser::openFrame(const FrameHeader& header) {
    if (isLarge_) {
        if (header.kind != first_.kind || header.id != first_.id || header.selectorLength != 0)
            return false;
    } else {
        first_ = header;
        isLarge_ = true;
        const auto payload = waiting().subspan(FrameHeader::size);
        isDropped_ =
            gate_ && !(header.kind == FrameKind::request
                           ? gate_->admits(header.id, text(payload.first(header.selectorLength)))
                           : gate_->expects(header.id));
    }
    begin_ += FrameHeader::size;
    left_ = header.payloadLength;
    moreFollows_ = header.moreFollows;
    return isDropped_ || takeRoom(header);
}

std::optional<Message> FrameParser::next() {
    release();
    for (;;) {
        if (isLarge_) {
            if (!takePayload())
                return std::nullopt;
            if (!moreFollows_) {
                deadline_.reset();
                isLarge_ = false;
                if (std::exchange(isDropped_, false))
                    continue;
                const auto payload = NSDataView(assembled_.all()).first(filled_);
                return Message{first_.kind, first_.id, text(payload.first(first_.selectorLength)),
                               payload.subspan(first_.selectorLength), gate_ != nullptr};
            }
        }
        if (end_ - begin_ < FrameHeader::size)
            return std::nullopt;
        const auto header = FrameHeader::parse(waiting());
        if (!header)
            return breakOff();
        const auto size = FrameHeader::size + header->payloadLength;
        const bool isSmall = !isLarge_ && !header->moreFollows && size <= limits_.bufferSize;
        // The common case is that of a small one: nothing is copied.
        if (end_ - begin_ < (isSmall ? size : FrameHeader::size + header->selectorLength))
            return std::nullopt;
        if (isSmall) {
            const auto payload = waiting().subspan(FrameHeader::size, header->payloadLength);
            begin_ += size;
            deadline_.reset();
            return Message{header->kind, header->id, text(payload.first(header->selectorLength)),
                           payload.subspan(header->selectorLength)};
        }
        deadline_.reset();  // each frame has its own time
        if (!openFrame(*header))
            return breakOff();
    }
}

std::optional<Message> FrameReader::next() {
    for (;;) {
        if (auto message = parser_.next())
            return message;
        const auto deadline = parser_.deadline();
        // Asked of the clock too: of a sender that trickles there is always just a little more.
        if (parser_.isBroken() || (deadline && std::chrono::steady_clock::now() >= *deadline))
            return std::nullopt;
        const auto count = socket_.receive(parser_.room(), deadline);
        if (count == 0)
            return std::nullopt;
        parser_.add(count);
    }
}

}  // namespace morvane
