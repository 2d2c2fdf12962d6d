// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// For the rows archive-encode-entry and archive-decode-entry of the bench: values that stand at
/// the front of every list of one kind, in one order. They are made ready once, and a reader that
/// finds them there knows them by their number.
namespace morvane {

class PropertyListFront {
  public:
    /// Of ASCII texts.
    explicit PropertyListFront(std::span<const std::string_view> texts);
    PropertyListFront(const PropertyListFront&) = delete;
    PropertyListFront& operator=(const PropertyListFront&) = delete;

    /// The front that this one begins with and adds to; null if there is none.
    const PropertyListFront* base() const { return base_; }
    std::uint32_t count() const { return count_; }
    /// The first bytes of a list whose references have that size: the magic and the values. Empty
    /// if references are never written in that size.
    std::string_view bytes(unsigned refSize) const {
        return isWritten(refSize) ? forms_[refSize - 1].bytes : std::string_view();
    }
    /// The first entries of its offset table, for offsets of 1 to 4 or 8 bytes, if these are wide
    /// enough; otherwise empty.
    std::span<const std::uint8_t> offsets(unsigned refSize, unsigned offsetSize) const {
        if (!isWritten(refSize) || offsetSize >= offsetSizes)
            return {};
        const auto& form = forms_[refSize - 1];
        // A list that has narrower ones cannot have all the values.
        const bool isTooNarrow =
            offsetSize < sizeof form.last && form.last >> (8 * offsetSize) != 0;
        return isTooNarrow ? std::span<const std::uint8_t>() : form.offsets[offsetSize];
    }
    /// The number of a text that was added to the base.
    std::optional<std::uint32_t> find(std::string_view text) const;

  protected:
    explicit PropertyListFront(const PropertyListFront& base, std::nullptr_t);
    // Each adds a value and returns its number. There are fewer than 256 values, of fewer than
    // 60,000 bytes together; a text is shorter than 256 bytes, and a container has fewer than 15
    // references.
    std::uint32_t addText(std::string_view text);
    std::uint32_t addArray(std::span<const std::uint32_t> elements);
    /// `references`: to all keys, then to all values.
    std::uint32_t addDictionary(std::span<const std::uint32_t> references);

  private:
    static constexpr unsigned mostRefSize = 4;
    static constexpr unsigned offsetSizes = 9;
    /// How the front is written in lists whose references have one size.
    struct Form {
        std::string bytes;
        std::array<std::vector<std::uint8_t>, offsetSizes> offsets;
        /// The last of them.
        std::size_t last = 0;
    };
    static bool isWritten(unsigned refSize) { return refSize >= 1 && refSize <= mostRefSize; }
    std::uint32_t add(std::string_view bytes, std::span<const std::uint32_t> references);

    const PropertyListFront* base_ = nullptr;
    std::uint32_t count_ = 0;
    std::array<Form, mostRefSize> forms_;
    struct Text {
        std::string text;
        std::uint32_t number;
    };
    std::vector<Text> added_;
};

}  // namespace morvane
