// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>

#include "Nfs4File.h"

/// What an allow/deny list by itself grants.
namespace morvane {

/// The permission bits that `who` has by the list: the first entry that speaks of a bit and of
/// `who`, or of a group that `who` is in, decides. The server of a network mount may know more: of
/// root, and of users that it takes for others.
std::uint32_t boxesByNfs4Acl(const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names);

/// Whether what `who` may do is for the server of a network mount to say, who tells only root.
bool isServersRoot(const Nfs4Item& list, const CBPosixIdentity& who);

}  // namespace morvane
