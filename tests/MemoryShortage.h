// SPDX-License-Identifier: MIT
// A process whose memory runs out.
#pragma once

namespace morvane {

/// While one stands, this program's allocations fail once `count` have succeeded: the next one, or
/// all from there on. Stands in the test programs that are built with MemoryShortage.cpp, which
/// takes the place of operator new.
class MemoryShortage {
  public:
    MemoryShortage(long count, bool forGood);
    ~MemoryShortage();
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    /// Whether an allocation has failed.
    bool isReached() const;
};

/// How many allocations of such a program have not been given back.
long allocationsHeld();

}  // namespace morvane
