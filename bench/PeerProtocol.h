// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// What both ends of the peers agree on.
namespace bench {

inline constexpr std::size_t messageSize = 64;
inline constexpr const char* busPath = "/bench";
inline constexpr const char* busInterface = "io.github.morvaneoperation.Bench";

}  // namespace bench
