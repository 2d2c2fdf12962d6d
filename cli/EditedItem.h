// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <optional>

#include "AccessCommand.h"
#include "AclEditor.h"

/// What an edit must know of the item besides its list.
namespace morvane {

/// How often a change is tried on a list that other programs change at the same time.
inline constexpr int maxAttempts = 8;

/// Whether the error says that a list was not written because another program has changed it since
/// it was read.
bool isChangedMeanwhile(const NSError& error);

/// Finds out by looking at the item, or, where this program has no access to it, from the list and
/// in the end from the service.
class EditedItem {
  public:
    /// `list` holds the entries of the item, before any edit. `access` asks a service that can look
    /// at more than this program; null if there is none.
    EditedItem(NSURL url, const EntryList& list, AccessSource access);

    /// Whether it is a folder, or why that cannot be determined.
    Result<bool> isFolder();

    /// Whether it has an allow/deny list, as items on network mounts have.
    bool isAllowDeny() const { return !ownership_; }

    /// Whether whoever makes an item in the folder has no right to it by `entries`.
    bool leavesCreatorWithout(const EntryList& entries) const {
        return itemList_ && itemList_->leavesCreatorWithout(entries);
    }

    /// The entry to write in place of `entry` so that execution is asked for even where "Read" as a
    /// whole would not include it.
    std::shared_ptr<MVAclEntry> askingToExecute(const std::shared_ptr<MVAclEntry>& entry) const {
        return itemList_ ? itemList_->askingToExecute(entry) : entry;
    }

    /// The entries that the item would have after `entries` were written; with `lossy` the nearest
    /// ones that grant no more. An error if it cannot hold them or that cannot be determined.
    Result<EntryList> afterWriting(const EntryList& entries, bool lossy);

    /// The digest of the list that the item will have when `entries` are written. Empty for an
    /// allow/deny list, of which the server of a network mount has the last word.
    std::string digestAfterWriting(const EntryList& entries) const;

  private:
    NSURL url_;
    AccessSource access_;
    /// Empty if the service does not tell what it has read from.
    std::optional<ItemList> itemList_;
    std::optional<bool> isFolder_;
    /// Empty for an allow/deny list.
    std::optional<PosixOwnership> ownership_;
};

}  // namespace morvane
