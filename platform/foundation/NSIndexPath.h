// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <vector>

namespace morvane {

/// The place of a node in a tree: its index at each level, from the root down. A value. The library
/// passes index paths along and gives them no meaning.
struct NSIndexPath {
    std::vector<std::uint64_t> indexes;

    auto operator<=>(const NSIndexPath&) const = default;
};

}  // namespace morvane
