// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <optional>
#include <string>
#include <vector>

/// Deals with servers of network mounts, which need not store an allow/deny list as it is. The one
/// of Linux stores a POSIX list instead: it keeps the three rights of the mode, applies a denial to
/// everyone who comes after it, and reports success.
namespace morvane {

/// The same list for everybody, in which no entry that `old` does not have denies something in
/// front of an entry that allows it to others: those allow first.
Nfs4Acl withOthersAllowedFirst(const Nfs4Acl& acl, const Nfs4Acl& old, const Nfs4Target& target,
                               const Nfs4Names& names);

/// `acl` with the right to read, write and execute that the list of the folder gives its owner, its
/// owning group and everyone, for those of whom `acl` says nothing.
Nfs4Acl withRightsOfFolder(const Nfs4Acl& acl, const Nfs4Acl& folder, bool isDirectory);

/// The list with the other kind of text for whomever `old` does not name: "name@domain" for a
/// number, a number for a name. Empty where there is nobody whom that can be said of.
std::optional<Nfs4Acl> withOtherNames(const Nfs4Acl& acl, const Nfs4Acl& old,
                                      const Nfs4Target& target, const Nfs4Names& names,
                                      const std::string& domain);

/// What `stored` takes from, or grants beyond, `wanted`, box by box: an entry is counted among
/// those of `wanted` that are shown. Not told is what no mode holds apart of a group of boxes that
/// is on as a whole, and what everybody always may.
std::vector<EntryLoss> lostInStoring(const Nfs4Acl& wanted, const Nfs4Acl& stored,
                                     const Nfs4Target& target, const Nfs4Names& names);

/// For people, the boxes of one sentence together: "allow user bob: "Delete": not stored".
std::vector<Phrase> textsOfStoring(const std::vector<EntryLoss>& losses);
/// The same in a row, as many as people read.
Phrase textOfStoring(const std::vector<EntryLoss>& losses);

}  // namespace morvane
