#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What allow and deny entries become in a POSIX list, the way back from entriesOfPosixAcl().
///
///     auto reduced = reduceToPosixAcl(entries, whose);
///     if (reduced.losses.empty()) write(reduced.acl);
///
/// The entries are evaluated in their order: the first decision for a right and an identity counts,
/// an identity that comes up for the first time starts from what everyone has so far, and a deny
/// for a group bears on the named users in it. The flat entries of the owner, the owning group and
/// everyone decide for these wherever they stand.
namespace morvane {

/// The item that the list is for. Its owner and group are not changed.
struct PosixAclTarget {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
    /// Whether a user is in a group, its own included.
    std::function<bool(std::uint32_t uid, std::uint32_t gid)> isMember;
};

struct PosixAclReduction {
    /// The nearest list that grants no more than the entries.
    PosixAcl acl;
    /// What of the entries `acl` does not hold, each for people: "entry 3 (allow user bob):
    /// "Delete"". Empty if it holds them all.
    std::vector<std::string> losses;
};

MORVANE_EXPORT PosixAclReduction reduceToPosixAcl(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAclTarget& target);

/// Whether the user database tells that the user is in the group, the user's own included.
MORVANE_EXPORT bool userIsInGroup(std::uint32_t uid, std::uint32_t gid);

}  // namespace morvane
