// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/LargeList.h>
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <span>
#include <utility>

/// For the rows items-100k and encode-1000-entries of the bench.
namespace morvane {

using namespace property_list_bytes;

void LargeList::reserve(std::size_t values, std::size_t bytes) {
    // Memory that is reserved and not used costs nothing, and where there is less, it has to grow.
    try {
        bytes_.reserve(bytes);
        reserveOffsets(values);
        willBeWritten(bytes_.data(), bytes_.capacity());
    } catch (const std::exception&) {
    }
}

void LargeList::begin(const PropertyListFront& front, std::uint64_t values, std::uint64_t uids) {
    front_ = &front;
    firstValue_ = front.count();
    refs_ = {front.count() + values, 3, 8};
    if (refs_.firstUid + uids > mostNarrow_)
        refs_ = {refs_.firstUid, 4, 0};
    const auto first = front.bytes(refs_.size);
    bytes_.assign(first.begin(), first.end());
    end_ = first.size();
}

void LargeList::clear() {
    bytes_.clear();
    end_ = 0;
    offsetCount_ = 0;
}

void LargeList::reserveOffsets(std::size_t room) {
    if (room <= offsetRoom_)
        return;
    auto offsets = std::make_unique_for_overwrite<std::uint32_t[]>(room);
    std::copy_n(offsets_.get(), offsetCount_, offsets.get());
    offsets_ = std::move(offsets);
    offsetRoom_ = room;
}

void LargeList::grow(std::size_t values, std::size_t bytes) {
    if (offsetRoom_ - offsetCount_ < values)
        reserveOffsets(2 * offsetRoom_ + values);
    if (bytes_.size() - end_ >= bytes)
        return;
    constexpr std::size_t more = std::size_t{16} << 10;
    // Each value takes a byte at least.
    if (refs_.size == 3 && valueCount() + bytes + more > mostNarrow_)
        widen();
    if (end_ + bytes + more > std::numeric_limits<std::uint32_t>::max()) {
        throw NSException(NSInvalidArgumentException, "A list is too long to be archived.");
    }
    bytes_.resize(end_ + bytes + more);
}

void LargeList::widen() {
    Bytes wide;
    wide.reserve(bytes_.capacity() / 3 * 4);
    const auto front = front_->bytes(4);
    wide.assign(front.begin(), front.end());
    for (std::size_t i = 0; i < offsetCount_; ++i) {
        const auto* p = bytes_.data() + offsets_[i];
        const auto* const end = bytes_.data() + (i + 1 < offsetCount_ ? offsets_[i + 1] : end_);
        offsets_[i] = static_cast<std::uint32_t>(wide.size());
        if (*p >> 4 == 0xA || *p >> 4 == 0xD) {
            const std::size_t marker = (*p & 0xF) != 0xF ? 1 : 2 + (std::size_t{1} << (p[1] & 0xF));
            wide.insert(wide.end(), p, p + marker);
            for (p += marker; p != end; p += 3)
                wide.insert(wide.end(), {0, p[0], p[1], p[2]});
        } else {
            wide.insert(wide.end(), p, end);
        }
    }
    bytes_.swap(wide);
    end_ = bytes_.size();
    refs_ = {refs_.firstUid, 4, 0};
}

void LargeList::finish(Ref root, Bytes& out) {
    const auto table = end_;
    // Mostly three bytes are enough; the fourth is overwritten by the next.
    const unsigned offsetSize = table <= 0xffffff ? 3 : 4;
    const auto front = front_->offsets(refs_.size, offsetSize);
    bytes_.resize(table + valueCount() * offsetSize + trailerSize);
    auto* p = putBytes(bytes_.data() + table, front.data(), front.size());
    for (const auto offset : std::span(offsets_.get(), offsetCount_)) {
        put(p, offset << (32 - 8 * offsetSize));
        p += offsetSize;
    }
    putTrailer(p, offsetSize, refs_.size, valueCount(), refs_.numberOf(root), table);
    if (out.empty()) {
        out.swap(bytes_);
    } else {
        out.insert(out.end(), bytes_.begin(), bytes_.end());
    }
}

}  // namespace morvane
