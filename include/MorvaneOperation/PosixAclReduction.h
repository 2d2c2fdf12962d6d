#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/PosixAcl.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace morvane {

/// As many named users and groups as one list holds: 64 KiB in the kernel's form.
inline constexpr std::size_t maxPosixNames = (65536 - 4) / 8 - 4;

/// The item that the list is for. Its owner and group are not changed.
struct PosixAclTarget {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
    /// The list that the item has; empty where there is nothing to be kept.
    std::optional<PosixAcl> old = {};
    /// The groups that a user is in, its own included; asked at most once for each user. Without
    /// one, the user database is asked.
    std::function<std::vector<std::uint32_t>(std::uint32_t uid)> groupsOf = {};
    /// Asked now and then while many users are looked up: false ends the work.
    std::function<bool()> goesOn = {};

    /// For the item whose list is `old`.
    static PosixAclTarget of(const PosixAcl& old) {
        return {old.owner, old.group, old.isDirectory, old};
    }
};

enum class PosixAclFit {
    fits,
    /// More users and groups than maxPosixNames: nothing was worked out.
    tooManyNames,
    /// The file system keeps the rights of the mode alone, and the list is more than that.
    modeOnly,
    /// goesOn() said no: nothing was worked out.
    cancelled,
};

struct PosixAclReduction {
    PosixAclFit fit = PosixAclFit::fits;
    /// The nearest list that grants no more than the entries.
    PosixAcl acl;
    /// What of the entries `acl` does not hold. Empty if it holds them all.
    std::vector<EntryLoss> losses;
};

/// The error for a list that does not fit at all, for the item at `url`; null if it fits.
MORVANE_EXPORT NSErrorRef errorOfFit(PosixAclFit fit, const NSURL& url);

/// What allow and deny entries become in a POSIX list, the way back from entriesOfPosixAcl().
///
///     const auto reduced = reduceToPosixAcl(entries, PosixAclTarget::of(acl));
///     if (reduced.losses.empty())
///         store(reduced.acl.access);
///
/// The entries are evaluated in their order: the first decision for a right and an identity counts,
/// an identity that comes up for the first time starts from what everyone has so far, and a deny
/// for a group bears on the owner and the named users in it. What is stored never grants more than
/// the entries, and what is not changed stays as it is stored, with what the mask holds back.
///
/// A group of boxes that is on as a whole is a bundle: "Read" asks for read and execute, "Write"
/// for write, and those of their boxes that Linux cannot hold apart are left out without a word. On
/// a file that nobody can execute, "Read" as a whole asks for read alone
/// (ItemList::askingToExecute() is for who wants both). A box that is off in an entry that allows
/// asks for nothing.
MORVANE_EXPORT PosixAclReduction reduceToPosixAcl(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries, const PosixAclTarget& target);

}  // namespace morvane
