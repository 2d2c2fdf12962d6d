// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/Nfs4Acl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// \file
/// How an allow/deny list is shown as entries, and what entries become in it.
///
/// Every allow and deny entry is shown, in its order, with a full tree. What has no box (audit and
/// alarm entries, "synchronize", flags that mean nothing for the item) is taken over from the list
/// that the item has, so that entries which are written back unchanged give the same list.

namespace morvane {

/// Translates between identities and the names in a list.
struct Nfs4Names {
    /// The user or group called "name@domain"; empty if this system knows none.
    std::function<std::optional<CBPosixIdentity>(const std::string& who, bool isGroup)> identityOf;
    /// The name, without a domain, of a user or group; empty if it has none.
    std::function<std::optional<std::string>(const CBPosixIdentity& identity)> nameOf;
};

/// The item that a list belongs to.
struct Nfs4Target {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
};

/// Whom an entry is for. "OWNER@" is the user who owns the item, "GROUP@" its group. Empty for a
/// name that this system does not know.
MORVANE_EXPORT std::optional<CBPosixIdentity> identityOfNfs4Entry(const Nfs4Entry& entry,
                                                                  const Nfs4Target& target,
                                                                  const Nfs4Names& names);

/// The permission bits (of acl_perms) that `mask` stands for, and back.
MORVANE_EXPORT std::uint32_t boxesOfNfs4Mask(std::uint32_t mask);
MORVANE_EXPORT std::uint32_t nfs4MaskOfBoxes(std::uint32_t boxes);

/// An entry for a name that this system does not know has a UUID made from the name, which no user
/// or group has.
MORVANE_EXPORT std::vector<std::shared_ptr<MVAclEntry>> entriesOfNfs4Acl(const Nfs4Acl& acl,
                                                                         const Nfs4Target& target,
                                                                         const Nfs4Names& names);

/// A digest that differs between any two contents of a list, its owner and group included.
MORVANE_EXPORT std::string digestOf(const Nfs4Acl& acl, const Nfs4Target& target);

/// The list that replaces another, and what is lost of the entries.
struct Nfs4Replacement {
    Nfs4Acl acl;
    /// What `acl` does not hold of the entries; empty if it holds them all.
    std::vector<EntryLoss> losses;
};

/// Makes the list that replaces `old`, the one that the item has now. A user or group that `old`
/// does not name is written as "OWNER@", "GROUP@" or "EVERYONE@" if it is one of these, otherwise
/// with a name in the domain that `old` uses for others that this system knows, otherwise with its
/// id.
MORVANE_EXPORT Nfs4Replacement
nfs4AclOfEntries(const std::vector<std::shared_ptr<MVAclEntry>>& entries, const Nfs4Acl& old,
                 const Nfs4Target& target, const Nfs4Names& names);

}  // namespace morvane
