// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace bench {

/// What a state change is compared with: a call that the compiler cannot see through.
class Target {
  public:
    virtual ~Target() = default;
    virtual void stateWasSet(std::int64_t state) = 0;
};

/// Counts its calls. Made in another source file, out of the caller's sight.
Target& countingTarget();

}  // namespace bench
