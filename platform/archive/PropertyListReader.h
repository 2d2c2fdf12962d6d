#pragma once

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
    struct Value {
        Kind kind = Kind::null;
        /// Bytes of data and ascii, units of utf16, elements of an array, pairs of a dictionary.
        std::uint64_t count = 0;
        /// The value of a boolean, integer or UID; the bits of a real or date.
        std::uint64_t bits = 0;
        /// The bytes, units or references.
        const std::uint8_t* bytes = nullptr;
    };

    explicit PropertyListReader(std::span<const std::uint8_t> bytes);

    std::uint64_t root() const { return root_; }
    std::uint64_t valueCount() const { return count_; }
    Value value(std::uint64_t ref) const;

    /// The i-th element; i < array.count.
    Value element(const Value& array, std::uint64_t i) const { return value(reference(array, i)); }
    Value key(const Value& dictionary, std::uint64_t i) const {
        return value(reference(dictionary, i));
    }
    Value valueOf(const Value& dictionary, std::uint64_t i) const {
        return value(reference(dictionary, dictionary.count + i));
    }
    /// Whether the i-th element or key is this ASCII text; as comparing value() would be, but most
    /// are told apart by their first byte.
    bool isText(const Value& container, std::uint64_t i, std::string_view text) const {
        const auto ref = reference(container, i);
        if (ref < count_ && text.size() < 15) {
            const auto offset = bigEndian(table_ + ref * offsetSize_, offsetSize_);
            const auto end = static_cast<std::uint64_t>(table_ - begin_);
            // Room for any short text; the few at the very end are looked at in full.
            if (offset >= 8 && offset < end && end - offset >= 16) {
                const auto* const p = begin_ + offset;
                if (*p != (0x50 | text.size()) && (*p & 0xF0) == 0x50 && *p != 0x5F)
                    return false;
                if (*p == (0x50 | text.size()))
                    return std::memcmp(p + 1, text.data(), text.size()) == 0;
            }
        }
        return isText(value(ref), text);
    }

  private:
    static bool isText(const Value& value, std::string_view text) {
        return value.kind == Kind::ascii && value.count == text.size() &&
               std::memcmp(value.bytes, text.data(), text.size()) == 0;
    }
    /// `size` is 1 to 8. Reads 8 bytes, which the trailer behind every value and table entry
    /// allows.
    static std::uint64_t bigEndian(const std::uint8_t* p, unsigned size) {
        static_assert(std::endian::native == std::endian::little);
        std::uint64_t value = 0;
        std::memcpy(&value, p, sizeof value);
        return __builtin_bswap64(value) >> (64 - 8 * size);
    }
    std::uint64_t reference(const Value& value, std::uint64_t i) const {
        return bigEndian(value.bytes + i * refSize_, refSize_);
    }

    const std::uint8_t* begin_;
    const std::uint8_t* table_;
    std::uint64_t count_;
    std::uint64_t root_;
    std::uint8_t offsetSize_;
    std::uint8_t refSize_;
};

}  // namespace morvane
