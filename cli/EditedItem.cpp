// SPDX-License-Identifier: MIT
#include "EditedItem.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>

#include <filesystem>
#include <utility>

namespace morvane {

namespace {

std::optional<bool> kindToldBy(const EntryList& list) {
    for (const auto& entry : list) {
        if (entry->isAcl())
            // A folder's entry has the group "Applies To" as well.
            return entry->permissions().size() > ACL_PERM_GROUPS;
    }
    return std::nullopt;
}

bool hasBox(const PermissionList& permissions, std::uint32_t permission) {
    for (const auto& group : permissions) {
        for (const auto& node : group->childNodes()) {
            const auto* box = MVTreeNode::permissionOf(*node);
            if (box && static_cast<std::uint32_t>(box->permission()) == permission)
                return true;
        }
    }
    return false;
}

}  // namespace

bool isChangedMeanwhile(const NSError& error) {
    return error.domain() == MVAclErrorDomain && error.code() == MVAclChanged;
}

EditedItem::EditedItem(NSURL url, const EntryList& list, AccessSource access)
    : url_(std::move(url)),
      access_(std::move(access)),
      itemList_(ItemList::asRead(list)),
      isFolder_(itemList_ ? itemList_->item().isDirectory : kindToldBy(list)),
      ownership_(ownershipToldBy(list)) {}

Result<bool> EditedItem::isFolder() {
    if (isFolder_)
        return *isFolder_;
    std::error_code ignored;
    const auto status = std::filesystem::status(url_.path(), ignored);
    if (std::filesystem::exists(status))
        isFolder_ = std::filesystem::is_directory(status);
    if (!isFolder_ && access_) {
        // Whoever is asked about, only a folder has a box for deleting what is in it.
        const auto answer = access_(url_, uuidOfPosixIdentity(CBEveryone{}));
        if (!answer)
            return Failure{answer.error()};
        isFolder_ = hasBox(*answer, ACL_DELETE_CHILD);
    }
    return isFolder_.value_or(false);
}

Result<EntryList> EditedItem::afterWriting(const EntryList& entries, bool lossy) {
    if (itemList_) {
        if (auto error = itemList_->whyNot(entries, lossy))
            return Failure{std::move(error)};
        return itemList_->nearest(entries);
    }
    const auto folder = isFolder();
    if (!folder)
        return Failure{folder.error()};
    // An allow/deny list holds what its boxes say; whom its entries name, the service knows.
    if (!ownership_)
        return entries;
    const auto wanted = reduceToPosixAcl(entries, {ownership_->owner, ownership_->group, *folder});
    if (!lossy && !wanted.losses.empty())
        return Failure{errorOfLosses(wanted.losses, entries, url_)};
    return entriesOfPosixAcl(wanted.acl);
}

std::string EditedItem::digestAfterWriting(const EntryList& entries) const {
    if (!itemList_ || !itemList_->posixAcl())
        return {};
    const auto after = ItemList::asRead(itemList_->nearest(entries));
    return after ? digestOf(*after->storedPosixAcl()) : std::string();
}

}  // namespace morvane
