#pragma once

#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>
#include <optional>

#include "PosixAclReader.h"

/// What a user or group can really do to an item, whatever the entries look like.
namespace morvane {

/// Whether `who` has all of `needed` at once: through several groups only if one of them grants it
/// all. A user has all groups that the user database tells; a group stands for a member of it
/// alone, everyone for a stranger. root may do what the kernel lets root do.
bool grants(const PosixAcl& acl, const CBPosixIdentity& who, PosixRights needed);

/// Each right that `who` has by itself.
PosixRights effectiveRights(const PosixAcl& acl, const CBPosixIdentity& who);

/// The permission bits that `who` has on `item`, whose list is `acl`: the list, the folder that it
/// is in (which decides on deleting it), the folders above (who cannot enter one of them has no
/// rights at all), the file system and the item's flags.
std::uint32_t effectiveBoxes(const AclItem& item, const PosixAcl& acl, const CBPosixIdentity& who);

/// `boxes` without what the file system that `item` is on, or the item's flags, give to nobody.
std::uint32_t withinMount(const AclItem& item, std::uint32_t boxes, bool isDirectory);

/// The folder that the item is in, that of `/` being itself; empty if the item is in none any more.
std::optional<AclItem> folderOf(const AclItem& item);

/// `boxes` without what the folders above the item keep `who` from. `folder` is the item's, as
/// folderOf() tells it.
std::uint32_t withinFolders(const AclItem& item, const std::optional<AclItem>& folder,
                            const CBPosixIdentity& who, std::uint32_t boxes);

}  // namespace morvane
