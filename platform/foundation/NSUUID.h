// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morvane {

/// A universally unique identifier: 16 bytes in network order, compared by value.
///
///     auto uuid = NSUUID::initWithUUIDString("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
///     assert(uuid && uuid->bytes()[0] == 0x6b);
class MORVANE_EXPORT NSUUID {
  public:
    using Bytes = std::array<std::uint8_t, 16>;

    explicit constexpr NSUUID(const Bytes& bytes) : bytes_(bytes) {}

    /// The text form of RFC 9562 (8-4-4-4-12 hexadecimal digits of either case); empty if `text` is
    /// anything else.
    static std::optional<NSUUID> initWithUUIDString(std::string_view text);

    /// The text form, in lower case.
    std::string UUIDString() const;
    const Bytes& bytes() const { return bytes_; }

    auto operator<=>(const NSUUID&) const = default;

  private:
    Bytes bytes_;
};

}  // namespace morvane
