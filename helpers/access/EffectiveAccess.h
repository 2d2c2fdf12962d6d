// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>

#include "Nfs4File.h"

/// What a user or group can really do to an item, whatever the entries look like.
namespace morvane {

/// The permission bits that `who` has on `item`, whose list is `acl`: the list, the folder that it
/// is in (which decides on deleting it), the folders above (who cannot enter one of them has no
/// rights at all), the file system and the item's flags.
std::uint32_t effectiveBoxes(const AclItem& item, const PosixAcl& acl, const CBPosixIdentity& who);

/// The same for an item with an allow/deny list, and with what the folder that it is in adds. What
/// root may do on a network mount the server tells, to root alone.
std::uint32_t effectiveBoxes(const AclItem& item, const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names);

}  // namespace morvane
