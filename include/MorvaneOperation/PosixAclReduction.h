// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace morvane {

/// The greatest number of named users and groups in one list, whose size in the kernel is 64 KiB.
inline constexpr std::size_t maxPosixNames = (65536 - 4) / 8 - 4;

/// The item that the list is for. Its owner and group are not changed.
struct PosixAclTarget {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
    /// The list that the item has; empty if nothing of it is to be kept.
    std::optional<PosixAcl> old = {};
    /// Returns the groups that a user is in, the primary one included; called at most once for each
    /// user. If empty, the user database is asked.
    std::function<std::vector<std::uint32_t>(std::uint32_t uid)> groupsOf = {};
    /// Called now and then while many users are looked up; false cancels the work.
    std::function<bool()> goesOn = {};

    /// Makes the target for the item whose list is `old`.
    static PosixAclTarget of(const PosixAcl& old) {
        return {old.owner, old.group, old.isDirectory, old};
    }
    /// Makes the target for `entries`. If they tell stored lists (MVAclOrigin::StoredLists), what
    /// they do not change is kept of these, and not of `old`.
    MORVANE_EXPORT static PosixAclTarget of(
        const PosixAcl& old, const std::vector<std::shared_ptr<MVAclEntry>>& entries);
};

/// Whether a list can be stored at all.
enum class PosixAclFit {
    fits,
    /// There are more users and groups than maxPosixNames; nothing was computed.
    tooManyNames,
    /// The file system stores nothing but the rights of the mode, and the list is more than that.
    modeOnly,
    /// goesOn() returned false; nothing was computed.
    cancelled,
};

/// The list that reduceToPosixAcl() makes, and what is lost of the entries.
struct PosixAclReduction {
    PosixAclFit fit = PosixAclFit::fits;
    /// The nearest list that grants no more than the entries.
    PosixAcl acl;
    /// What `acl` does not hold of the entries. Empty if it holds them all.
    std::vector<EntryLoss> losses;
};

/// Makes the error for a list that does not fit the item at `url` at all; null if it fits.
MORVANE_EXPORT NSErrorRef errorOfFit(PosixAclFit fit, const NSURL& url);

/// Makes a POSIX list of allow and deny entries: the reverse of entriesOfPosixAcl().
///
///     const auto reduced = reduceToPosixAcl(entries, PosixAclTarget::of(acl));
///     if (reduced.losses.empty())
///         store(reduced.acl.access);
///
/// The entries are evaluated in their order: the first decision for a right and an identity counts,
/// an identity that is met for the first time starts from what everyone has so far, and a deny for
/// a group also holds for the owner and the named users who are its members. The result never
/// grants more than the entries. What is not changed stays as it is stored, including what the mask
/// holds back.
///
/// A group of boxes that is on as a whole is a bundle: "Read" asks for read and execute, "Write"
/// for write, and those of their boxes that Linux cannot store apart are no loss. On a file that
/// nobody can execute, "Read" as a whole asks for read alone (use ItemList::askingToExecute() to
/// ask for both). A box that is off in an entry that allows asks for nothing.
MORVANE_EXPORT PosixAclReduction reduceToPosixAcl(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAclTarget& target);

}  // namespace morvane
