// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/PropertyListBytes.h>
#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

/// For the rows items-100k and encode-1000-entries of the bench: a property list of very many
/// values, or of many bytes, which is written value by value as it will be, into memory of its
/// size. Each value would otherwise be noted first and written when all are known.
///
/// How wide references are is settled before the first value: three bytes, and four from the moment
/// when there are too many values. Such a list is shorter than 4 GB.
namespace morvane {

class LargeList {
  public:
    using Ref = std::uint32_t;
    using Bytes = std::vector<std::uint8_t>;
    /// Marks the reference to a UID from before the list was begun.
    static constexpr Ref uidBit = 0x80000000;

    /// How references are written. A copy stays where it is at hand.
    struct Refs {
        std::uint64_t firstUid = 0;
        unsigned size = 3;
        unsigned shift = 8;

        std::uint64_t numberOf(Ref ref) const {
            return (ref & uidBit) != 0 ? firstUid + (ref & ~uidBit) : ref;
        }
        std::uint8_t* put(std::uint8_t* p, Ref ref) const {
            // Few are from before the list became large.
            if ((ref & uidBit) != 0) [[unlikely]]
                ref = static_cast<Ref>(numberOf(ref));
            return putNumber(p, ref);
        }
        std::uint8_t* putNumber(std::uint8_t* p, Ref ref) const {
            // Four bytes; of three that count, the next overwrites the last.
            property_list_bytes::put(p, ref << shift);
            return p + size;
        }
    };

    /// `mostNarrow`: so many values have references of three bytes; 2^24 or less.
    explicit LargeList(std::size_t mostNarrow) : mostNarrow_(mostNarrow) {}

    /// Makes room for so many values and bytes; where there is less, it has to grow.
    void reserve(std::size_t values, std::size_t bytes);
    /// The list begins with `front`. `values` were noted before and come first, then `uids`.
    void begin(const PropertyListFront& front, std::uint64_t values, std::uint64_t uids);
    bool hasBegun() const { return !bytes_.empty(); }
    void clear();

    /// The front's included.
    std::size_t valueCount() const { return firstValue_ + offsetCount_; }
    std::size_t size() const { return end_; }
    /// Bytes that there are for it.
    std::size_t memory() const { return bytes_.capacity() + offsetRoom_ * sizeof(std::uint32_t); }
    const Refs& refs() const { return refs_; }

    /// Values that are written together.
    struct Several {
        const std::uint8_t* const begin;
        std::uint32_t* offset;
        Ref ref;
        /// Of what is written.
        std::uint8_t* end;

        /// The next value starts there.
        Ref next() {
            *offset++ = static_cast<std::uint32_t>(end - begin);
            return ref++;
        }
    };
    /// The next values, at most so many of so many bytes together, which `put(Several&)` writes;
    /// returns what `put` does. Throws NSInvalidArgumentException if the list becomes too long.
    template <class Put>
    [[gnu::always_inline]] Ref addSeveral(std::size_t most, std::size_t mostBytes, Put&& put) {
        if (bytes_.size() - end_ < mostBytes || offsetRoom_ - offsetCount_ < most)
            grow(most, mostBytes);
        Several values{bytes_.data(), offsets_.get() + offsetCount_, static_cast<Ref>(valueCount()),
                       bytes_.data() + end_};
        const auto result = put(values);
        offsetCount_ = static_cast<std::size_t>(values.offset - offsets_.get());
        end_ = static_cast<std::size_t>(values.end - values.begin);
        return result;
    }
    /// The next value, of at most so many bytes, which `put` writes from where it is told; `put`
    /// returns where it ends.
    template <class Put>
    Ref add(std::size_t mostBytes, Put&& put) {
        return addSeveral(1, mostBytes, [&](Several& values) {
            const auto ref = values.next();
            values.end = put(values.end);
            return ref;
        });
    }
    Ref uid(std::uint32_t value) {
        return add(property_list_bytes::mostIntegerBytes,
                   [value](std::uint8_t* p) { return property_list_bytes::putUid(p, value); });
    }

    /// Ends the list and appends it to `out`.
    void finish(Ref root, Bytes& out);

  private:
    void grow(std::size_t values, std::size_t bytes);
    void reserveOffsets(std::size_t room);
    /// Makes the references of what is written four bytes wide.
    void widen();

    const PropertyListFront* front_ = nullptr;
    std::size_t firstValue_ = 0;
    const std::size_t mostNarrow_;
    /// What is written already, up to end_, where each value of it stands.
    Bytes bytes_;
    std::size_t end_ = 0;
    std::unique_ptr<std::uint32_t[]> offsets_;
    std::size_t offsetCount_ = 0;
    std::size_t offsetRoom_ = 0;
    Refs refs_;
};

}  // namespace morvane
