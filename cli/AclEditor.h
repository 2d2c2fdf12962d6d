// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVAclEditor.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "EntryText.h"

/// The words in which a script and the editor on the terminal edit a list, with the same model
/// behind them as a window has.
///
///     AclEditor editor(entries, [](Problem&) { return false; });
///     if (const auto problem = editor.setBox(0, "Write Data", BoxChange::on)) ...
///
/// Every operation answers with what is wrong, in words for people, and has then changed nothing;
/// the answer is empty if it was done. Entries keep their places until they are removed.
namespace morvane {

/// Why something was not done; empty if it was.
using Problem = std::optional<std::string>;

/// Whether the item whose list is edited is a folder; sets `problem` if that cannot be told.
using FolderQuestion = std::function<bool(Problem& problem)>;

enum class BoxChange { on, off, toggle };

class AclEditor {
  public:
    /// Edits the very entries, which are given in the order in which they count. `isFolder`, asked
    /// when an entry is added, tells what kind of tree it gets.
    AclEditor(EntryList entries, FolderQuestion isFolder);

    /// In the order in which they are shown: those that were given in their canonical order, then
    /// new ones.
    const EntryList& entries() const { return model_->entries(); }
    /// In the order in which they count.
    EntryList entriesToWrite() const { return model_->acl().entries; }
    /// The model behind the words. It is not told what the item's list can hold: saving decides
    /// that, and the user may accept the nearest list then.
    MVAclEditor& model() const { return *model_; }
    /// What the list that was read can hold; null if its entries do not tell.
    const ItemList* list() const { return list_ ? &*list_ : nullptr; }
    /// Shows an edit that was made again on `now`, the entries as they were read anew. `read` are
    /// those that count as read from then on, in the order in which they count.
    void goOn(const EntryList& now, const EntryList& read, EntryList shown);

    /// What would be stored of each entry, in the letters of the list: "rw-". "Read" as a whole
    /// executes a file only if somebody could execute it before, or is to.
    std::vector<std::string> letters() const;

    /// Adds an entry at the end of the list, which allows `who` to read and write.
    Problem add(std::string_view who);
    Problem remove(std::size_t entry);
    /// Switches a box or a group of boxes, which is found by its name in any case of letters;
    /// "Read/Read Data" names the group of the box as well.
    Problem setBox(std::size_t entry, std::string_view name, BoxChange change);
    /// Does the same for a node of the entry's tree.
    Problem setNode(std::size_t entry, NSTreeNode& node, BoxChange change);
    /// Takes "all", "read-write", "read", "write" or, for the entries of the owner, the owning
    /// group and everyone, "none".
    Problem choosePermissions(std::size_t entry, std::string_view name);
    /// Does the same by a code of MVAclPermissionGroup that the entry offers.
    Problem choosePermissions(std::size_t entry, std::int64_t code);
    Problem setTag(std::size_t entry, std::int32_t tag);
    /// Takes what identityWritten() reads.
    Problem setWho(std::size_t entry, std::string_view who);
    Problem setInherited(std::size_t entry, bool inherited);

    /// Why the list must not be written as it stands: an entry whose user is not known would apply
    /// to everyone.
    Problem unwritable() const;

  private:
    Problem known(std::size_t entry) const;
    Problem changeable(std::size_t entry) const;

    const std::shared_ptr<MVAclEditor> model_;
    std::optional<ItemList> list_;
    const FolderQuestion isFolder_;
};

/// Returns the identity that is written as "user:NAME" or "group:NAME" (a number may stand in place
/// of the name), "everyone", "creator" (whoever makes an item in the folder) or "creator-group";
/// null with `problem` set if there is none.
CBIdentityRef identityWritten(std::string_view who, Problem& problem);

/// Tells that this system knows nobody of that name.
Problem unknownName(std::string_view name, bool isGroup);

}  // namespace morvane
