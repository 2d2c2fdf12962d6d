// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>

/// What a POSIX list by itself grants.
namespace morvane {

/// Whether `who` has all of `needed` at once: through several groups only if one of them grants it
/// all. A user has all groups that the user database tells; a group stands for a member of it
/// alone, everyone for a stranger. root may do what the kernel lets root do.
bool grants(const PosixAcl& acl, const CBPosixIdentity& who, PosixRights needed);

/// Each right that `who` has by itself.
PosixRights effectiveRights(const PosixAcl& acl, const CBPosixIdentity& who);

bool isRoot(const CBPosixIdentity& who);
bool owns(const CBPosixIdentity& who, std::uint32_t owner);

}  // namespace morvane
