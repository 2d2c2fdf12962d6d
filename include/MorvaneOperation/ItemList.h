#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/PosixAcl.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// What the list of an item can hold: for a host, before anything is sent.
///
///     const auto list = ItemList::asRead(entries);   // before they are edited
///     for (const auto& entry : entries) {
///         if (!list->holdsChoice(*entry, MVAclGroupAll))
///             greyOut(*entry, MVAclGroupAll);
///     }
///     for (const auto& loss : list->losses(entries))
///         show(loss.text());
///     entries = list->nearest(entries);
///
/// It computes; no service, no rights and no look at the item are needed. A service that is given
/// the same entries comes to the same result, as long as the list is what was read.
class MORVANE_EXPORT ItemList {
  public:
    using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

    /// The list that `entries` are, all of them and as they were read; empty if they do not tell
    /// where they were read from. They are not kept.
    static std::optional<ItemList> asRead(const Entries& entries);

    const MVAclOrigin::Values& item() const { return origin_->values(); }

    /// Whether `entry` can have the box on: one of its tree, or the group node of a flat entry.
    /// (Several boxes may only go together; losses() tells.)
    bool holdsBox(const MVAclEntry& entry, const NSTreeNode& box) const;
    /// Whether `entry` can be given that choice of MVAclPermissionGroup.
    bool holdsChoice(const MVAclEntry& entry, std::int64_t code) const;
    /// `entry`, as it asks for execution whatever the others ask for: where somebody has switched
    /// its box "Execute File" on. With it "Read" may be on as a whole, which does not make a file
    /// executable that nobody can execute. A copy then, without "Read Attributes", which asks for
    /// nothing; else `entry` itself.
    std::shared_ptr<MVAclEntry> askingToExecute(const std::shared_ptr<MVAclEntry>& entry) const;
    /// What of `entries` the list would lose; empty if it holds them all.
    std::vector<EntryLoss> losses(const Entries& entries) const;
    /// The entries as they would be read after the nearest list that grants no more was written.
    Entries nearest(const Entries& entries) const;
    /// Whether whoever makes an item in the folder has no right to it by `entries`: they say what
    /// is inherited, and nothing that is for the creator or everyone. An allow/deny list is stored
    /// so; a POSIX list takes what the creator has from the folder's own rights.
    bool leavesCreatorWithout(const Entries& entries) const;
    /// The error that a service answers with for entries that the list cannot hold; null if it
    /// holds them. With `lossy`, of those that have no nearest list either.
    NSErrorRef whyNot(const Entries& entries, bool lossy) const;

  private:
    explicit ItemList(std::shared_ptr<const MVAclOrigin> origin) : origin_(std::move(origin)) {}
    bool holds(const std::shared_ptr<MVAclEntry>& probe) const;
    /// Whether it is for the owner, the owning group or everyone.
    bool isOfTheBase(const MVAclEntry& entry) const;

    std::shared_ptr<const MVAclOrigin> origin_;
    /// What counts of a POSIX list.
    std::optional<PosixAcl> posix_;
    /// Whom the entries of an allow/deny list are for.
    std::vector<NSUUID> known_;
};

}  // namespace morvane
