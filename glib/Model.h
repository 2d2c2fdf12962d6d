// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <morvane/morvane.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "GObjects.h"

/// How the GObjects hold the model, for each other.
namespace morvane {

/// An entry and what edits it, as its GObject and those of its boxes hold them: whichever of them,
/// or of the list, goes first.
struct EditedEntry {
    std::shared_ptr<MVAclEntry> entry;
    std::shared_ptr<MVAclEditor> editor;
};

MorvaneAclEntry* newAclEntry(EditedEntry entry);
const EditedEntry& editedEntryOf(MorvaneAclEntry* entry);
/// `entry` is empty for a box that nobody can change.
MorvanePermission* newPermission(std::shared_ptr<NSTreeNode> node, EditedEntry entry);
/// A list of MorvanePermission.
template <class Nodes>
Owned<GListStore> permissionsOf(const Nodes& nodes, const EditedEntry& entry) {
    Owned list(g_list_store_new(MORVANE_TYPE_PERMISSION));
    for (const auto& node : nodes) {
        const Owned permission(newPermission(node, entry));
        g_list_store_append(list.get(), permission.get());
    }
    return list;
}
/// A list of MorvaneChoice.
GListModel* modelOf(const std::vector<EntryChoice>& choices);
MorvaneIdentity* newIdentity(CBIdentityRef identity);
const CBIdentityRef& identityOf(MorvaneIdentity* identity);

MorvaneAcl* newAcl(MVFileAcl acl);
/// Makes a list that shows `nearest` in place of the entries of `asked`; `differs` tells whether
/// they are others.
MorvaneAcl* newNearestAcl(MVFileAcl asked, MVFileAcl::Entries nearest, bool differs);
MVAclEditor& editorOf(MorvaneAcl* acl);
/// Notes that the item now has the list as it was at that count of edits.
void wasWritten(MorvaneAcl* acl, std::uint64_t editCount);
MorvaneLoss* newLoss(const EntryLoss& loss, std::size_t entryCount);

void countReport(MorvaneProgress* progress);
void setCounts(MorvaneProgress* progress, const MVItemCounts& counts);
/// What the error tells of single items, in place of what was told before; null is none.
void setFailures(MorvaneProgress* progress, const NSErrorRef& error);
/// Each with the URL of its item, if it is about one.
void setFailures(MorvaneProgress* progress, const std::vector<NSErrorRef>& errors);

/// Once for each operation that measures them, and once when it has ended.
void setBusy(MorvaneSizes* sizes, bool busy);
void setSizes(MorvaneSizes* sizes, const std::vector<std::shared_ptr<MVFileSizeItem>>& items);

GFile* newFile(const NSURL& url);
/// Empty for an item that has no path.
std::optional<NSURL> urlOf(GFile* file);

/// The text of an error for people, with advice.
std::string messageOf(const NSError& error);
GError* newError(const NSErrorRef& error);

}  // namespace morvane
