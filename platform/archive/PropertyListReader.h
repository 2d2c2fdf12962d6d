#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

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

  private:
    std::uint64_t reference(const Value& value, std::uint64_t i) const;

    const std::uint8_t* begin_;
    const std::uint8_t* table_;
    std::uint64_t count_;
    std::uint64_t root_;
    std::uint8_t offsetSize_;
    std::uint8_t refSize_;
};

}  // namespace morvane
