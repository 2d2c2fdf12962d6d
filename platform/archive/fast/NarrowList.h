// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/PropertyListReader.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

/// For the row items-100k of the bench: a property list whose references and offsets have four
/// bytes at most, as those of all but giant ones have. It tells the most frequent values with a few
/// instructions each, and nothing of any other.
namespace morvane {

class NarrowList {
  public:
    using Bytes = const std::uint8_t*;

    explicit NarrowList(const PropertyListReader& list)
        : begin_(list.layout().begin),
          table_(list.layout().table),
          count_(list.valueCount()),
          end_(static_cast<std::uint64_t>(table_ - begin_)),
          refSize_(list.layout().refSize),
          offsetSize_(list.layout().offsetSize) {}
    static bool isOne(const PropertyListReader& list) {
        return list.layout().refSize <= most && list.layout().offsetSize <= most;
    }

    std::size_t refSize() const { return refSize_; }
    /// The i-th reference of a container.
    std::uint32_t reference(Bytes references, std::uint64_t i) const {
        return number(references + i * refSize_, refSize_);
    }
    /// Where the value starts; null if it is none.
    Bytes at(std::uint32_t ref) const {
        if (ref >= count_)
            return nullptr;
        const auto offset = number(table_ + ref * offsetSize_, offsetSize_);
        return offset >= magicSize && offset < end_ ? begin_ + offset : nullptr;
    }
    /// The UID that starts there.
    std::optional<std::uint64_t> uidAt(Bytes p) const {
        const unsigned length = *p - 0x80u + 1;
        if (length - 1 >= 8 || length >= left(p))
            return std::nullopt;
        return bigEndian(p + 1) >> (64 - 8 * length);
    }
    /// The integer that starts there.
    std::optional<std::int64_t> integerAt(Bytes p) const {
        const unsigned log = *p - 0x10u;
        if (log > 3 || (1u << log) >= left(p))
            return std::nullopt;
        return static_cast<std::int64_t>(bigEndian(p + 1) >> (64 - (8u << log)));
    }
    static std::optional<std::int64_t> booleanAt(Bytes p) {
        if ((*p & 0xFE) != 0x08)
            return std::nullopt;
        return *p & 1;
    }
    /// The references of the dictionary that starts there, if it has so many pairs; otherwise null.
    Bytes dictionaryAt(Bytes p, std::uint32_t pairs) const {
        return *p == (0xD0 | pairs) && pairs * 2 * refSize_ < left(p) ? p + 1 : nullptr;
    }

  private:
    /// Bytes of a number.
    static constexpr unsigned most = 4;
    static constexpr std::uint32_t magicSize = 8;

    /// Bytes from `p` to the table.
    std::uint64_t left(Bytes p) const { return static_cast<std::uint64_t>(table_ - p); }
    /// The trailer, behind every value and table entry, allows to read more than there is.
    static std::uint32_t number(Bytes p, std::size_t size) {
        std::uint32_t value = 0;
        std::memcpy(&value, p, sizeof value);
        return __builtin_bswap32(value) >> (8 * (most - size));
    }
    static std::uint64_t bigEndian(Bytes p) {
        std::uint64_t value = 0;
        std::memcpy(&value, p, sizeof value);
        return __builtin_bswap64(value);
    }

    const Bytes begin_;
    const Bytes table_;
    const std::uint64_t count_;
    const std::uint64_t end_;
    const std::size_t refSize_;
    const std::size_t offsetSize_;
};

}  // namespace morvane
