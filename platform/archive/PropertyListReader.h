// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/fast/PropertyListFront.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

/// Reads a binary property list ("bplist00") that came from anyone, in place.
///
///     PropertyListReader list(bytes);          // checks the trailer
///     auto value = list.value(list.root());    // checks this value
///
/// Nothing is allocated and nothing is copied. What lies outside the list's bounds is refused with
/// PropertyListDamage when it is asked for.
namespace morvane {

class PropertyListDamage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class PropertyListReader {
  public:
    enum class Kind : std::uint8_t {
        null,
        boolean,
        integer,
        real,
        date,
        data,
        ascii,
        utf16,
        uid,
        array,
        dictionary
    };
    /// Small enough for two registers.
    struct Value {
        Kind kind = Kind::null;
        /// Bytes of data and ascii, units of utf16, elements of an array, pairs of a dictionary.
        std::uint32_t count = 0;
        union {
            /// The value of a boolean, integer or UID; the bits of a real or date.
            std::uint64_t bits = 0;
            /// The bytes, units or references of what has a count.
            const std::uint8_t* bytes;
        };
    };
    static_assert(sizeof(Value) == 16);

    /// As memcmp() tells, but short ones without a call.
    [[gnu::always_inline]] static bool sameBytes(const void* a, const void* b, std::size_t size) {
        const auto differ = [&]<class Word>(Word, std::size_t at) {
            Word one = 0;
            Word other = 0;
            // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): there are `size` bytes
            std::memcpy(&one, static_cast<const char*>(a) + at, sizeof one);
            std::memcpy(&other, static_cast<const char*>(b) + at, sizeof other);
            return one != other;
        };
        // The two words overlap.
        if (size >= 8 && size <= 16)
            return !differ(std::uint64_t{}, 0) && !differ(std::uint64_t{}, size - 8);
        if (size >= 4 && size < 8)
            return !differ(std::uint32_t{}, 0) && !differ(std::uint32_t{}, size - 4);
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): likewise
        return size == 0 || std::memcmp(a, b, size) == 0;
    }

    static constexpr std::uint64_t notAscii = ~std::uint64_t{0};
    /// An ASCII text where it stands; of size notAscii for any other value.
    struct Text {
        const std::uint8_t* bytes;
        std::uint64_t size;

        [[gnu::always_inline]] bool operator==(std::string_view text) const {
            return size == text.size() && sameBytes(bytes, text.data(), text.size());
        }
        bool operator==(const Text& other) const {
            return size == other.size &&
                   (size == notAscii || std::memcmp(bytes, other.bytes, size) == 0);
        }
    };

    /// `front`: looked for at the front of the list, and if it is not there the ones that it adds
    /// to.
    explicit PropertyListReader(std::span<const std::uint8_t> bytes,
                                const PropertyListFront* front = nullptr);

    /// Whether the list starts with the front, so that its texts are the values 0, 1, 2, ...
    bool startsWithFront() const { return front_ != nullptr; }
    /// The front that it starts with, or null.
    const PropertyListFront* front() const { return front_; }
    /// Whether the dictionary has these texts of the front as its keys, in this order.
    template <class... Keys>
    bool hasFrontKeys(const Value& dictionary, Keys... keys) const {
        std::uint64_t i = 0;
        return front_ && dictionary.count == sizeof...(keys) &&
               (... && (reference(dictionary, i++) == keys));
    }

    /// For fast/NarrowList.h: where the list begins, where its table is, and how wide references
    /// and offsets are.
    struct Layout {
        const std::uint8_t* begin;
        const std::uint8_t* table;
        unsigned refSize;
        unsigned offsetSize;
    };
    Layout layout() const { return {begin_, table_, refSize_, offsetSize_}; }

    std::uint64_t root() const { return root_; }
    std::uint64_t valueCount() const { return count_; }
    /// The value that is number `ref`. A short one of the `likely` kind is told by a branch that is
    /// foreseen where that kind is expected; every other is looked at in full.
    template <Kind likely = Kind::null>
    Value value(std::uint64_t ref) const;
    /// The i-th element or key as a number of a value, which is not checked.
    std::uint64_t reference(const Value& container, std::uint64_t i) const {
        return bigEndian(container.bytes + i * refSize_) >> refShift_;
    }
    /// The number of the i-th value of a dictionary.
    std::uint64_t valueReference(const Value& dictionary, std::uint64_t i) const {
        return reference(dictionary, std::uint64_t{dictionary.count} + i);
    }
    /// Where the references of the keys stand.
    std::span<const std::uint8_t> keyReferences(const Value& dictionary) const {
        return {dictionary.bytes, std::size_t{dictionary.count} * refSize_};
    }
    /// The i-th element; i < array.count.
    template <Kind likely = Kind::null>
    [[gnu::always_inline]] Value element(const Value& array, std::uint64_t i) const {
        return value<likely>(reference(array, i));
    }
    Value key(const Value& dictionary, std::uint64_t i) const {
        return value(reference(dictionary, i));
    }
    template <Kind likely = Kind::null>
    [[gnu::always_inline]] Value valueOf(const Value& dictionary, std::uint64_t i) const {
        return value<likely>(valueReference(dictionary, i));
    }
    /// The i-th element or key; as value() would tell.
    Text text(const Value& container, std::uint64_t i) const {
        const auto ref = reference(container, i);
        if (const auto* const p = locate(ref)) {
            if (const auto text = textAt(p); text.bytes)
                return text;
        }
        const auto other = anyValue(ref);
        return other.kind == Kind::ascii ? Text{other.bytes, other.count} : Text{nullptr, notAscii};
    }
    /// Whether the i-th element or key is that ASCII text; false for one that is not there.
    [[gnu::always_inline]] bool hasText(const Value& container, std::uint64_t i,
                                        const Text& expected) const {
        const auto* const p = locate(reference(container, i));
        if (!p)
            return false;
        const auto text = textAt(p);
        return text.bytes && text.size == expected.size &&
               sameBytes(text.bytes, expected.bytes, expected.size);
    }

  private:
    static constexpr std::size_t magicSize = 8;

    Value anyValue(std::uint64_t ref) const;
    static Value counted(Kind kind, std::uint32_t count, const std::uint8_t* bytes) {
        Value value{kind, count, {}};
        value.bytes = bytes;
        return value;
    }
    /// Where a value starts; null if it is none.
    const std::uint8_t* locate(std::uint64_t ref) const {
        if (ref >= count_)
            return nullptr;
        const auto offset = bigEndian(table_ + ref * offsetSize_) >> offsetShift_;
        return offset >= magicSize && offset < static_cast<std::uint64_t>(table_ - begin_)
                   ? begin_ + offset
                   : nullptr;
    }
    /// The text that starts at `p`; null for a long one, and for what is no ASCII or is cut off.
    Text textAt(const std::uint8_t* p) const {
        const auto left = static_cast<std::uint64_t>(table_ - p) - 1;
        const unsigned length = *p - 0x50u;
        if (length < 15 && length <= left)
            return {p + 1, length};
        // A length of its own, in one byte.
        if (length == 15 && left >= 2 && p[1] == 0x10 && p[2] <= left - 2)
            return {p + 3, p[2]};
        return {nullptr, notAscii};
    }
    /// Reads 8 bytes, which the trailer behind every value and table entry allows.
    static std::uint64_t bigEndian(const std::uint8_t* p) {
        static_assert(std::endian::native == std::endian::little);
        std::uint64_t value = 0;
        std::memcpy(&value, p, sizeof value);
        return __builtin_bswap64(value);
    }
    /// Of the first `size` bytes, 1 to 8.
    static std::uint64_t bigEndian(const std::uint8_t* p, unsigned size) {
        return bigEndian(p) >> (64 - 8 * size);
    }

    const std::uint8_t* begin_;
    const std::uint8_t* table_;
    std::uint64_t count_;
    std::uint64_t root_;
    const PropertyListFront* front_;
    std::uint8_t offsetSize_;
    std::uint8_t refSize_;
    /// What of eight bytes is not the integer.
    std::uint8_t offsetShift_;
    std::uint8_t refShift_;
};

}  // namespace morvane

#include <MorvaneOperation/platform/archive/fast/LikelyValue.h>
