// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// An entry as a document that libplist writes and reads: the same keys, classes and nested
/// archives as the keyed archive of an MVAclEntry.
namespace bench {

struct PlistBox {
    std::string name;
    std::int32_t permission = 0;
    std::int64_t state = 0;
    std::vector<PlistBox> children;
    bool operator==(const PlistBox&) const = default;
};

struct PlistEntry {
    std::array<std::uint8_t, 16> uuid{};
    std::int32_t tag = 0;
    bool inherited = false;
    std::vector<PlistBox> groups;
    bool operator==(const PlistEntry&) const = default;
};

PlistEntry recordOf(const morvane::MVAclEntry& entry);
std::vector<std::uint8_t> encodeWithPlist(const PlistEntry& entry);
/// Throws std::runtime_error for what is no such document.
PlistEntry decodeWithPlist(std::span<const std::uint8_t> bytes);

}  // namespace bench
