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

/// Holds many small messages, and is read into at once.
constexpr std::size_t bufferSize = std::size_t{64} << 10;

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

void FrameReader::Bytes::reserve(std::size_t capacity) {
    if (capacity <= capacity_)
        return;
    auto* const data = static_cast<std::uint8_t*>(std::realloc(data_, capacity));
    if (!data)
        throw std::bad_alloc();
    data_ = data;
    capacity_ = capacity;
}

FrameReader::FrameReader(StreamSocket& socket) : FrameReader(socket, Limits()) {}

FrameReader::FrameReader(StreamSocket& socket, Limits limits)
    : socket_(socket), limits_(std::move(limits)), buffer_(bufferSize) {
    buffer_.resize(bufferSize);
}

FrameReader::~FrameReader() {
    giveRoomBack();
}

bool FrameReader::takeRoom(const FrameHeader& first, std::size_t length) {
    const auto refuse = [&](std::string reason) {
        if (first.kind == FrameKind::request)
            refused_ = {first.id, std::move(reason)};
        return false;
    };
    if (length > limits_.messageSize - assembled_.all().size()) {
        return refuse("The request is larger than " + std::to_string(limits_.messageSize) +
                      " bytes; ask for fewer items at a time.");
    }
    if (limits_.shared && !limits_.shared->take(length)) {
        return refuse("Too many large requests of this user are being handled; ask again later.");
    }
    taken_ += length;
    return true;
}

void FrameReader::giveRoomBack() {
    if (limits_.shared)
        limits_.shared->giveBack(std::exchange(taken_, 0));
}

bool FrameReader::hasMessageWaiting() const {
    const auto header = FrameHeader::parse(waiting());
    return header && !header->moreFollows &&
           waiting().size() - FrameHeader::size >= header->payloadLength;
}

std::size_t FrameReader::receive(std::span<std::uint8_t> into) {
    // Asked of the clock too: of a sender that trickles there is always just a little more.
    if (deadline_ && std::chrono::steady_clock::now() >= *deadline_)
        return 0;
    return socket_.receive(into, deadline_);
}

bool FrameReader::fillBuffer(std::size_t needed) {
    if (end_ - begin_ >= needed)
        return true;
    if (bufferSize - begin_ < needed) {
        std::memmove(buffer_.all().data(), buffer_.all().data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    while (end_ - begin_ < needed) {
        // A frame has begun once its first byte is here: from then on it has limited time.
        if (begin_ != end_ && !deadline_) {
            deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;
        }
        const auto count = receive(buffer_.all().subspan(end_));
        if (count == 0)
            return false;
        end_ += count;
    }
    return true;
}

bool FrameReader::appendPayload(std::size_t length) {
    auto at = assembled_.all().size();
    const auto end = at + length;
    assembled_.resize(end);
    const auto buffered = std::min(length, end_ - begin_);
    if (buffered != 0)
        std::memcpy(assembled_.all().data() + at, buffer_.all().data() + begin_, buffered);
    begin_ += buffered;
    at += buffered;
    if (at < end && !deadline_)
        deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;
    while (at < end) {
        const auto count = receive(assembled_.all().subspan(at));
        if (count == 0)
            return false;
        at += count;
    }
    return true;
}

std::optional<Message> FrameReader::next() {
    if (begin_ == end_)
        begin_ = end_ = 0;
    if (assembled_.capacity() > limits::frameSize) {
        assembled_.release();
    } else {
        assembled_.resize(0);
    }
    giveRoomBack();
    deadline_.reset();
    std::optional<FrameHeader> first;
    for (;;) {
        if (!fillBuffer(FrameHeader::size))
            return std::nullopt;
        const auto header = FrameHeader::parse(waiting());
        if (!header)
            return std::nullopt;
        if (!first) {
            first = header;
            if (!header->moreFollows && FrameHeader::size + header->payloadLength <= bufferSize) {
                // The common case: nothing is copied.
                if (!fillBuffer(FrameHeader::size + header->payloadLength))
                    return std::nullopt;
                const auto payload = waiting().subspan(FrameHeader::size, header->payloadLength);
                begin_ += FrameHeader::size + header->payloadLength;
                return Message{header->kind, header->id,
                               text(payload.first(header->selectorLength)),
                               payload.subspan(header->selectorLength)};
            }
        } else if (header->kind != first->kind || header->id != first->id ||
                   header->selectorLength != 0) {
            return std::nullopt;
        }
        begin_ += FrameHeader::size;
        if (!takeRoom(*first, header->payloadLength) || !appendPayload(header->payloadLength))
            return std::nullopt;
        if (!header->moreFollows)
            break;
        // Each frame has its own time, and the next is due from now on.
        deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;
    }
    const NSDataView payload(assembled_.all());
    return Message{first->kind, first->id, text(payload.first(first->selectorLength)),
                   payload.subspan(first->selectorLength)};
}

}  // namespace morvane
