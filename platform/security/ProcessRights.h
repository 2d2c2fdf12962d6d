#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstdint>
#include <string>

/// Whether another process holds a right, for a service that works on behalf of its clients.
namespace morvane {

/// A process that no other can be taken for: the id may be given away again, the two together not.
struct ProcessIdentity {
    std::int64_t processIdentifier = -1;
    /// When the process started, in the kernel's own units; 0 if that could not be told while the
    /// process was alive.
    std::uint64_t startTime = 0;
    std::int64_t userIdentifier = -1;
};

enum class RightState {
    notHeld,
    held,
    /// It was granted, and the grant is older than a right holds.
    expired,
};

/// Asks the system's policy, and nobody else: a right that the user would have to be asked for is
/// not held. Held for an explicit yes only; every failure is a no. A grant's age counts from when
/// this process first saw it. Any thread; blocks for a moment.
MORVANE_EXPORT RightState rightOfProcess(const ProcessIdentity& process, const std::string& right);

}  // namespace morvane
