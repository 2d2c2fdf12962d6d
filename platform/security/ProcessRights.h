// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstdint>
#include <string>

/// \file
/// Whether another process holds a right, for a service that works on behalf of its clients.

namespace morvane {

/// A process that no other can be taken for: the id may be given away again, the two together not.
struct ProcessIdentity {
    std::int64_t processIdentifier = -1;
    /// When the process started, in the kernel's own units; 0 if it could not be read while the
    /// process was alive.
    std::uint64_t startTime = 0;
    std::int64_t userIdentifier = -1;
};

enum class RightState {
    notHeld,
    held,
    /// It was granted, and the grant is older than a right holds.
    expired,
    /// The system's policy could not be asked.
    unknown,
};

/// Makes what the questions need, so that rightOfProcess() makes no thread and no descriptor any
/// more: for a service, before it has its first client. False if the policy service's bus is not
/// there; the next question then tries again. Throws where the library is not installed whole.
MORVANE_EXPORT bool connectToPolicy();

/// Asks the system's policy, and nobody else: a right that the user would have to be asked for is
/// not held, unless the user has given a password for another right of the process, which is good
/// for all of them. Held for an explicit yes only; every failure is a no.
///
/// A right holds for 45 seconds, which count from when this process first saw the grant: the policy
/// service tells nobody but a login session when it was given. A program that waits with its first
/// request therefore has the time of its waiting in addition, up to the five minutes for which the
/// policy service keeps a grant. Any thread; blocks for a moment.
MORVANE_EXPORT RightState rightOfProcess(const ProcessIdentity& process, const std::string& right);

}  // namespace morvane
