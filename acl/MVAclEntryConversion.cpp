// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/acl_perms.h>

#include <utility>

namespace morvane {
namespace {

constexpr std::size_t readGroup = 0;
constexpr std::size_t writeGroup = 1;
constexpr std::size_t appliesToGroup = ACL_PERM_GROUPS;
constexpr std::size_t deleteSubfoldersAndFiles = 3;
constexpr std::size_t thisItem = 0;
constexpr std::size_t childFiles = 1;
constexpr std::size_t childFolders = 2;
constexpr std::size_t allDescendants = 3;

void convertToFilePermission(const NSTreeNode& node) {
    if (auto* permission = MVTreeNode::permissionOf(node))
        permission->convertToFilePermission();
}

}  // namespace

bool MVAclEntry::convertInheritedToFileEntry() {
    if (permissions_.size() <= appliesToGroup)
        return false;
    const auto& boxes = *permissions_[appliesToGroup];
    if (MVTreeNode::stateOf(*boxes.childNodeAtIndex(childFiles)) == MVStateOff)
        return false;
    Permissions groups = permissions_;
    setPermissions({});
    for (const auto group : {readGroup, writeGroup}) {
        convertToFilePermission(*groups[group]->childNodeAtIndex(0));
        convertToFilePermission(*groups[group]->childNodeAtIndex(1));
    }
    groups[writeGroup]->mutableChildNodes().removeObjectAtIndex(deleteSubfoldersAndFiles);
    groups.erase(groups.begin() + appliesToGroup);
    setPermissions(std::move(groups));
    setInherited(true);
    setUpdatingPermissions(true);
    resolvePermissionGroup();
    setUpdatingPermissions(false);
    return true;
}

bool MVAclEntry::convertInheritedToDirectoryEntry() {
    if (permissions_.size() <= appliesToGroup)
        return false;
    const auto boxes = permissions_[appliesToGroup];
    const auto stateAt = [&](std::size_t i) {
        return MVTreeNode::stateOf(*boxes->childNodeAtIndex(i));
    };
    const auto setStateAt = [&](std::size_t i, std::int64_t state) {
        MVTreeNode::setStateOf(*boxes->childNodeAtIndex(i), state);
    };
    if (stateAt(childFolders) == MVStateOff)
        return false;
    // The entry listens to these changes and reacts as to a user's.
    setStateAt(thisItem, MVStateOn);
    if (stateAt(allDescendants) == MVStateOff) {
        setStateAt(childFiles, MVStateOff);
        setStateAt(childFolders, MVStateOff);
    }
    setInherited(true);
    return true;
}

}  // namespace morvane
