// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>

#include "Nfs4File.h"

/// What an allow/deny list by itself grants.
namespace morvane {

/// The permission bits that the list grants `who`: for each bit, the first entry decides that
/// mentions it and is for `who` or for a group that `who` is in. The server of a network mount may
/// decide otherwise for root, and for users whom it maps to others.
std::uint32_t boxesByNfs4Acl(const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names);

/// Whether the server of a network mount decides what `who` may do, and reports it only to root.
bool isServersRoot(const Nfs4Item& list, const CBPosixIdentity& who);

}  // namespace morvane
