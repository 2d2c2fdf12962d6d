// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <morvane/morvane.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "GObjects.h"

/// How the GObjects hold the model, for each other.
namespace morvane {

/// What the entries of a list have in common.
struct ListContext {
    std::shared_ptr<const MVAclOrigin> origin;
    std::optional<ItemList> list;

    const ItemList* itemList() const { return list ? &*list : nullptr; }
    bool isFolder() const { return origin && origin->values().isDirectory; }
};

/// An entry, as its GObject and those of its boxes share it: whichever of them goes first.
struct SharedEntry {
    std::shared_ptr<MVAclEntry> entry;
    std::shared_ptr<const ListContext> context;
    /// Whether the user has switched the box for execution on by itself: "Read" as a whole does
    /// not ask for it (ItemList::askingToExecute()).
    bool isExecutionChosen = false;
    /// Is called when something of the entry was set; empty for an entry in no list.
    std::function<void()> changed = {};
};
using SharedEntryRef = std::shared_ptr<SharedEntry>;

MorvaneAclEntry* newAclEntry(SharedEntryRef entry);
const SharedEntryRef& sharedEntryOf(MorvaneAclEntry* entry);
/// `entry` is null for a box that nobody can change.
MorvanePermission* newPermission(std::shared_ptr<NSTreeNode> node, SharedEntryRef entry);
/// A list of MorvanePermission.
template <class Nodes>
Owned<GListStore> permissionsOf(const Nodes& nodes, const SharedEntryRef& entry) {
    Owned list(g_list_store_new(MORVANE_TYPE_PERMISSION));
    for (const auto& node : nodes) {
        const Owned permission(newPermission(node, entry));
        g_list_store_append(list.get(), permission.get());
    }
    return list;
}
MorvaneIdentity* newIdentity(CBIdentityRef identity);
const CBIdentityRef& identityOf(MorvaneIdentity* identity);

MorvaneAcl* newAcl(MVFileAcl acl);
/// The list as it is to be written.
MVFileAcl aclToWrite(MorvaneAcl* acl);
void setModified(MorvaneAcl* acl, bool modified);
MorvaneLoss* newLoss(const EntryLoss& loss, std::size_t entryCount);

void countReport(MorvaneProgress* progress);
void addFailure(MorvaneProgress* progress, GFile* file, const std::string& message);
void clearFailures(MorvaneProgress* progress);

/// Once for each operation that measures them, and once when it has ended.
void setBusy(MorvaneSizes* sizes, bool busy);
void setSizes(MorvaneSizes* sizes, const std::vector<std::shared_ptr<MVFileSizeItem>>& items);

GFile* newFile(const NSURL& url);
/// Empty for an item that has no path.
std::optional<NSURL> urlOf(GFile* file);

/// What people read of an error, with what to do.
std::string messageOf(const NSError& error);
GError* newError(const NSErrorRef& error);

}  // namespace morvane
