// SPDX-License-Identifier: MIT
// A process whose memory runs out.
#pragma once

namespace morvane {

/// While one exists, this program's allocations fail once `count` have succeeded: the next one, or
/// all from there on. It is for test programs that are built with MemoryShortage.cpp, which defines
/// operator new.
class MemoryShortage {
  public:
    MemoryShortage(long count, bool forGood);
    ~MemoryShortage();
    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    /// Whether an allocation has failed.
    bool isReached() const;
};

/// How many allocations of such a program have succeeded since it began.
long allocationsMade();

/// How many of them have not been freed yet.
long allocationsHeld();

}  // namespace morvane
