// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/PosixAcl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// Tells a host what the list of an item can hold, before anything is sent.
///
///     const auto list = ItemList::asRead(entries);   // before they are edited
///     for (const auto& entry : entries) {
///         if (!list->holdsChoice(*entry, MVAclGroupAll))
///             greyOut(*entry, MVAclGroupAll);
///     }
///     for (const auto& loss : list->losses(entries))
///         show(loss.text().localized());
///     entries = list->nearest(entries);
///
/// It only computes: it needs neither a service nor a right and does not look at the item. A
/// service that is given the same entries comes to the same result, as long as the list is what was
/// read.
class MORVANE_EXPORT ItemList {
  public:
    using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

    /// Makes the list from all of its entries as they were read; empty if the entries have no
    /// origin. The entries are not kept.
    static std::optional<ItemList> asRead(const Entries& entries);

    const MVAclOrigin::Values& item() const;
    /// The list as its entries show it, without what its mask holds back; empty if it is an
    /// allow/deny list. entriesOfPosixAcl() makes the entries of a changed one.
    const std::optional<PosixAcl>& posixAcl() const { return posix_; }
    /// The list as it is stored, with what its mask holds back; empty if it is an allow/deny list.
    std::optional<PosixAcl> storedPosixAcl() const;

    /// Whether the box may be on in `entry`: a box of its tree, or the group node of a flat entry.
    /// (Some boxes can only be stored together; losses() names them.)
    bool holdsBox(const MVAclEntry& entry, const NSTreeNode& box) const;
    /// Whether the list can hold `entry` with this code of MVAclPermissionGroup.
    bool holdsChoice(const MVAclEntry& entry, std::int64_t code) const;
    /// Why not, for people: "only root has it". Empty where it can.
    Phrase whyNotBox(const MVAclEntry& entry, const NSTreeNode& box) const;
    Phrase whyNotChoice(const MVAclEntry& entry, std::int64_t code) const;
    /// Why the entry cannot be one that denies.
    Phrase whyNotDenied(const MVAclEntry& entry) const;
    /// Why no entry of the list can apply to what the boxes of `on` say, which has values of
    /// acl_flags.
    Phrase whyNotAppliesTo(std::uint32_t on) const;
    /// Returns an entry that asks for execution even if nobody can execute the file now: to be
    /// called when the user has switched the box "Execute File" on. "Read" as a whole does not make
    /// such a file executable; if all of "Read" is on, a copy without "Read Attributes" is
    /// returned, a box that asks for nothing. Otherwise `entry` itself is returned.
    std::shared_ptr<MVAclEntry> askingToExecute(const std::shared_ptr<MVAclEntry>& entry) const;
    /// Whether "Read" as a whole lets the item be executed if these entries are written: always in
    /// a folder's list, and in that of a file which somebody can execute, or for which one of them
    /// asks for execution.
    bool readExecutes(const Entries& entries) const;
    /// Returns what the list would lose of `entries`; empty if it holds them all.
    std::vector<EntryLoss> losses(const Entries& entries) const;
    /// Returns the entries that would be read if the nearest list were written: the one that comes
    /// closest to `entries` and grants no more than they do.
    Entries nearest(const Entries& entries) const;
    /// Whether `entries` would leave the creator of an item in the folder without any right to it:
    /// some are inherited, but none of these is for the creator or for everyone. Only an allow/deny
    /// list can be stored like that; in a POSIX list the creator gets the folder's own rights.
    bool leavesCreatorWithout(const Entries& entries) const;
    /// Returns the error with which a service answers if the list cannot hold `entries`, or null if
    /// it can. With `lossy`, entries that have a nearest list are no error.
    NSErrorRef whyNot(const Entries& entries, bool lossy) const;

  private:
    explicit ItemList(std::shared_ptr<const MVAclOrigin> origin) : origin_(std::move(origin)) {}
    Phrase whyNot(const std::shared_ptr<MVAclEntry>& probe) const;
    /// Whether the entry is for the owner, the owning group or everyone.
    bool isOfTheBase(const MVAclEntry& entry) const;

    std::shared_ptr<const MVAclOrigin> origin_;
    /// The POSIX list without what its mask holds back; empty for an allow/deny list.
    std::optional<PosixAcl> posix_;
    /// The identities that the entries of an allow/deny list are for.
    std::vector<NSUUID> known_;
};

}  // namespace morvane
