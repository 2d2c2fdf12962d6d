// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// For the rows archive-encode-entry and archive-decode-entry of the bench: ASCII texts that stand
/// at the front of every list of one kind, in one order. They are made ready once, and a reader
/// that finds them there knows them by their number.
namespace morvane {

class PropertyListFront {
  public:
    /// Each text shorter than 256 bytes, and all of them than 60,000.
    explicit PropertyListFront(std::span<const std::string_view> texts);

    std::uint32_t count() const { return count_; }
    /// The first bytes of the list: the magic and the texts.
    std::string_view bytes() const { return bytes_; }
    /// The first entries of the offset table, for offsets of 1 to 4 or 8 bytes; otherwise empty.
    std::span<const std::uint8_t> offsets(unsigned size) const {
        return size < offsets_.size() ? std::span<const std::uint8_t>(offsets_[size])
                                      : std::span<const std::uint8_t>();
    }

  private:
    std::uint32_t count_;
    std::string bytes_;
    std::array<std::vector<std::uint8_t>, 9> offsets_;
};

}  // namespace morvane
