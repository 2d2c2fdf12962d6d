// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace bench {

/// How often this thread has called operator new, in the library as well.
std::uint64_t allocationCount();

}  // namespace bench
