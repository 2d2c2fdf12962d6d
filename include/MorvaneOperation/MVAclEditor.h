// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace morvane {

/// A list as it was read, and what a user makes of it: what every host has behind its widgets.
///
///     const auto editor = MVAclEditor::init(shown);
///     const auto entry = editor->add(nullptr);
///     editor->setPermissionGroup(entry, MVAclGroupRead);
///     assert(editor->isModified());
///     const MVFileAcl toWrite = editor->acl();
///
/// An edit is done whole or not at all: it answers whether the entry is now what was asked for, and
/// what the item's list cannot hold is refused, as the menus and boxes say (EntryTexts.h). The
/// entries are those that were given, not copies, and may be edited directly as well; that counts
/// as an edit, but is not refused.
///
/// Whoever is told of an edit may edit on: tell() has what is shown notified after the edit, when
/// nothing is half done. While an entry itself is telling its observers, an edit of it is refused.
///
/// An entry that was removed can still be edited, without any effect on the list. Main thread.
class MORVANE_EXPORT MVAclEditor final : public std::enable_shared_from_this<MVAclEditor> {
    struct Private {
        explicit Private() = default;
    };

  public:
    using Entry = std::shared_ptr<MVAclEntry>;
    using Entries = MVFileAcl::Entries;

    /// Throws std::invalid_argument for a null entry.
    static std::shared_ptr<MVAclEditor> init(MVFileAcl acl);
    ~MVAclEditor();
    MVAclEditor(const MVAclEditor&) = delete;
    MVAclEditor& operator=(const MVAclEditor&) = delete;

    const NSURL& url() const;
    const std::shared_ptr<const MVAclOrigin>& origin() const;
    /// Null if it is not known what the item's list can hold.
    const ItemList* list() const;
    bool isFolder() const;

    /// As they are to be shown: those that were read in the order in which they count, then new
    /// ones in the order in which they were added. None changes its place by an edit.
    const Entries& entries() const;
    /// The list to be written, in the order in which the entries count. Those that were read stay
    /// where they are. One that is new, allows or denies now, or is for somebody else, comes first
    /// if it denies, and last if it allows, as it would deny nothing behind one that allows.
    MVFileAcl acl() const;
    /// Goes on with other entries of the same item, such as the nearest list (ItemList::nearest()).
    /// What they show is what they store. Throws std::invalid_argument for a null entry.
    void setEntries(Entries entries);
    /// Shows these entries, in this order: none that is left out, and each that was removed again.
    /// Those that were read count where they were read, others are new ones. So an edit is taken
    /// back, or the list is shown in another order. Throws std::invalid_argument for a null entry.
    void showEntries(Entries entries);
    /// Has these count as the entries that were read, in this order, as when an edit is made again
    /// on what another program has written meanwhile. One that was read before still counts as
    /// edited if it is no longer what it was then. Throws std::invalid_argument for a null entry.
    void setReadEntries(const Entries& entries);

    /// Has the list count as made of what `now` was read from, so that writing it replaces what
    /// another program has written meanwhile.
    void adopt(const MVAclEditor& now);

    /// A new entry, the last one, that allows to read and write, and on a folder applies to the
    /// folder alone. For the user of the program, if `who` is null.
    Entry add(CBIdentityRef who);
    /// False if the entry is not in the list, or has to stay (whyNotRemoved()).
    bool remove(const Entry& entry);
    /// Puts the entries in their canonical order, in which they count from then on: those that deny
    /// before those that allow, inherited ones last. Answers whether one has moved.
    bool sort();

    /// Not for an entry of the base, and not for null.
    bool setIdentity(const Entry& entry, CBIdentityRef who);
    /// One of the choices that are possible: ruleChoices(), permissionChoices(),
    /// appliesToChoices().
    bool setRule(const Entry& entry, std::int32_t tag);
    bool setPermissionGroup(const Entry& entry, std::int64_t code);
    bool setAppliesTo(const Entry& entry, std::int64_t code);
    /// An inherited entry is made the item's own before it is edited. Only an allow/deny list has
    /// entries that can be marked as inherited.
    bool setInherited(const Entry& entry, bool inherited);
    bool canSetInherited(const MVAclEntry& entry) const;

    /// Switches a box of the entry, or a group of boxes.
    bool setBox(const Entry& entry, const NSTreeNode& box, bool on);
    bool canSetBox(const MVAclEntry& entry, const NSTreeNode& box, bool on) const;
    /// What a click means: a box that is on is switched off, any other one on, unless the list
    /// cannot hold that; a mixed group is then switched off.
    bool clickBox(const Entry& entry, const NSTreeNode& box);
    /// Why a click would change nothing; empty if it would.
    Phrase whyNotClicked(const MVAclEntry& entry, const NSTreeNode& box) const;

    /// Whether the box for execution was switched on by itself, and not off since: acl() then asks
    /// for execution, also where "Read" as a whole would not. Always false for an entry that is not
    /// in the list. To be set when the boxes of an entry are put back as they were.
    bool isExecutionChosen(const MVAclEntry& entry) const;
    void setExecutionChosen(const MVAclEntry& entry, bool chosen);

    /// The permissions that would be stored, in the letters of the list: "rw-". "Read" as a whole
    /// executes a file only if somebody could execute it before, or the box for execution was
    /// switched on by itself. Empty if the kind of list is not known.
    std::string letters(const MVAclEntry& entry) const;
    /// Whether "Read" as a whole executes the item. An edit of one entry may change it for all.
    bool readExecutes() const;

    /// How many edits there were. To be kept when the list is written, for wasWritten().
    std::uint64_t editCount() const;
    /// Whether there were edits since the list was read or written.
    bool isModified() const;
    /// What the list was at that count is stored now.
    void wasWritten(std::uint64_t editCount);

    /// Has `changed` called in each edit that concerns an entry of the list, with the property that
    /// was set. It is not called for entries that come and go.
    using Changed = std::function<void(const MVAclEntry& entry, const NSKeyPath& keyPath)>;
    void setObserver(Changed changed);
    /// Calls `notify` when the edit that is under way has ended; at once if there is none.
    void tell(std::function<void()> notify);

    /// Public for std::make_shared only; use init().
    MVAclEditor(Private, MVFileAcl acl);

  private:
    struct MORVANE_INTERNAL State;
    MORVANE_INTERNAL bool edit(const Entry& entry, const std::function<bool()>& work);

    std::unique_ptr<State> state_;
};

}  // namespace morvane
