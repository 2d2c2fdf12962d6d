#pragma once

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>

#include "PosixAcl.h"
#include "PosixAclReader.h"

/// What a user or group can really do to an item, whatever the entries look like.
namespace morvane {

/// Of a user with all groups that the user database tells; of a group, what its members have
/// through it; of everyone, what a stranger has. root may do what the kernel lets root do.
PosixRights effectiveRights(const PosixAcl& acl, const CBPosixIdentity& who);

/// The permission bits that `who` has on `item`, whose list is `acl`: the list, the folder that it
/// is in (which decides on deleting it), the file system and the item's flags. Folders further up
/// are not looked at.
std::uint32_t effectiveBoxes(const AclItem& item, const PosixAcl& acl, const CBPosixIdentity& who);

}  // namespace morvane
