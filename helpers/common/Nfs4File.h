#pragma once

#include <MorvaneOperation/Nfs4AclEntries.h>

#include <variant>
#include <vector>

#include "PosixAclReader.h"

/// Reads and writes the allow/deny list of a real item.
namespace morvane {

/// The list that an item has, and how it is stored.
struct Nfs4Item {
    Nfs4Target target;
    Nfs4Form form = Nfs4Form::named;
    Nfs4Acl acl;
};

/// The value of an extended attribute of any length, or an errno value.
std::variant<std::vector<std::uint8_t>, int> readAttribute(const AclItem& item, const char* name);

/// An errno value where there is none, or none that is well-formed (EBADMSG).
std::variant<Nfs4Item, int> readNfs4Item(const AclItem& item);

/// Puts `acl` in place of the list that `old` is, stored as that is. 0, or an errno value and
/// nothing is changed. A list that is there already is not written.
int writeNfs4Acl(const AclItem& item, const Nfs4Item& old, const Nfs4Acl& acl);

/// The permission bits that `who` has by the list: the first entry that speaks of a bit and of
/// `who`, or of a group that `who` is in, decides. The server of a network mount may know more: of
/// root, and of users that it takes for others.
std::uint32_t boxesByNfs4Acl(const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names);

/// The same, with what the folder that the item is in and the mount add and take.
std::uint32_t effectiveBoxes(const AclItem& item, const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names);

}  // namespace morvane
