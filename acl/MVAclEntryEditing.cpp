// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <array>
#include <utility>

namespace morvane {
namespace {

std::shared_ptr<MVTreeNode> newNode(std::string_view name, std::int32_t permission,
                                    std::int64_t state) {
    return MVTreeNode::treeNodeWithRepresentedObject(
        MVAclPermission::initWithName(name, permission, state));
}

void appendRow(MVTreeNode& group, const acl_perm_entry& row, std::int64_t state) {
    group.mutableChildNodes().append(newNode(row.name, static_cast<std::int32_t>(row.perm), state));
}

std::shared_ptr<MVTreeNode> newPermissionGroup(const acl_perm_group& table, std::uint32_t kind) {
    auto group = newNode(table.name, MVAclMarkerPermissions, MVStateOff);
    const auto state = table.perms->perm == ACL_WRITE_SECURITY ? MVStateOff : MVStateOn;
    for (const auto* row = table.perms; row->name; ++row) {
        if (row->kinds & kind)
            appendRow(*group, *row, state);
    }
    MVAclEntry::resolveStateForPermissionNode(group.get());
    return group;
}

std::shared_ptr<MVTreeNode> newAppliesToGroup() {
    auto group =
        newNode(KDLocalizedString::localize("Applies To", "ACL"), MVAclMarkerAppliesTo, MVStateOff);
    for (const auto* row = acl_flags; row->name; ++row)
        appendRow(*group, *row, row == acl_flags ? MVStateOn : MVStateOff);
    MVAclEntry::resolveStateForPermissionNode(group.get());
    return group;
}

void setSettableOf(const NSTreeNode& node, bool settable) {
    if (auto* permission = MVTreeNode::permissionOf(node))
        permission->setSettable(settable);
}

}  // namespace

std::shared_ptr<MVAclEntry> MVAclEntry::newEntryForDirectory(bool directory) {
    Permissions permissions;
    permissions.reserve(ACL_PERM_GROUPS + 1);
    const std::uint32_t kind = directory ? ACL_KIND_FOLDERS : ACL_KIND_FILES;
    for (const auto* group = acl_perms; group->name; ++group)
        permissions.push_back(newPermissionGroup(*group, kind));
    if (directory)
        permissions.push_back(newAppliesToGroup());
    const auto user =
        CBIdentity::identityWithName(NSUserName(), CBIdentityAuthority::defaultIdentityAuthority());
    auto entry = initWithUuid(user ? std::optional(user->uniqueIdentifier()) : std::nullopt,
                              MVAclTagAllow, std::move(permissions), false);
    entry->setInherited(false);
    return entry;
}

void MVAclEntry::resolveStateForPermissionNode(const NSTreeNode* node) {
    if (!node)
        return;
    const auto& children = node->childNodes();
    auto state = children.empty() ? MVStateOff : MVTreeNode::stateOf(*children.front());
    for (const auto& child : children) {
        if (MVTreeNode::stateOf(*child) != state) {
            state = MVStateMixed;
            break;
        }
    }
    MVTreeNode::setStateOf(*node, state);
}

void MVAclEntry::observeValueForKeyPath(const NSKeyPath&, NSObject& object) {
    if (!updatingPermissions_)
        followNode(static_cast<const NSTreeNode&>(object));  // registered on nodes only
}

// Not a part of every setter that tells of a change, which would keep registers for it.
[[gnu::noinline]] void MVAclEntry::followNode(const NSTreeNode& node) {
    setUpdatingPermissions(true);
    MVAclPermission::propagateStateOfPermissionNode(&node);
    resolveApplicableTo();
    resolveStateForPermissionNode(node.parentNode());
    resolvePermissionGroup();
    setUpdatingPermissions(false);
}

void MVAclEntry::resolvePermissionGroup() {
    std::int64_t code = MVAclGroupCustom;
    if (permissions_.size() >= ACL_PERM_GROUPS) {
        const auto read = MVTreeNode::stateOf(*permissions_[0]);
        const auto write = MVTreeNode::stateOf(*permissions_[1]);
        const auto administration = MVTreeNode::stateOf(*permissions_[2]);
        const auto are = [&](std::int64_t r, std::int64_t w, std::int64_t a) {
            return read == r && write == w && administration == a;
        };
        if (are(MVStateOn, MVStateOn, MVStateOn))
            code = MVAclGroupAll;
        else if (are(MVStateOn, MVStateOn, MVStateOff))
            code = MVAclGroupReadWrite;
        else if (are(MVStateOn, MVStateOff, MVStateOff))
            code = MVAclGroupRead;
        else if (are(MVStateOff, MVStateOn, MVStateOff))
            code = MVAclGroupWrite;
        else if (are(MVStateOff, MVStateOff, MVStateOff) && !isAcl())
            code = MVAclGroupNone;
    }
    setPermissionGroup(code);
}

void MVAclEntry::setPermissionGroup(std::int64_t code) {
    const auto previous = std::exchange(permissionGroup_, code);
    if (!updatingPermissions_) {
        setUpdatingPermissions(true);
        if (code == MVAclGroupCustom) {
            refuseCustomGroup(previous);
        } else {
            applyPermissionGroup(code);
            setUpdatingPermissions(false);
        }
    }
    didChangeValueForKey(permissionGroupKeyPath);
}

void MVAclEntry::applyPermissionGroup(std::int64_t code) {
    std::array states{MVStateOn, MVStateOn, MVStateOn};
    switch (code) {
        case MVAclGroupReadWrite:
            states = {MVStateOn, MVStateOn, MVStateOff};
            break;
        case MVAclGroupRead:
            states = {MVStateOn, MVStateOff, MVStateOff};
            break;
        case MVAclGroupWrite:
            states = {MVStateOff, MVStateOn, MVStateOff};
            break;
        case MVAclGroupNone:
            states = {MVStateOff, MVStateOff, MVStateOff};
            break;
        default:
            break;
    }
    for (std::size_t i = 0; i < states.size(); ++i) {
        if (i >= permissions_.size())
            throwRangeException(i, permissions_.size());
        const auto group = permissions_[i];
        MVTreeNode::setStateOf(*group, states[i]);
        MVAclPermission::propagateStateOfPermissionNode(group.get());
    }
}

void MVAclEntry::refuseCustomGroup(std::int64_t previous) {
    // The guard stays set until the task has run, so the task only stores the code, unless
    // something else has cleared the guard meanwhile.
    DispatchQueue::mainQueue().async([self = shared_from_this(), previous] {
        try {
            self->setPermissionGroup(previous);
        } catch (const NSException& exception) {
            // A peer's tree may lack a group. Nobody could catch it on the main queue.
            if (exception.name() != NSRangeException)
                throw;
        }
        self->setUpdatingPermissions(false);
    });
}

void MVAclEntry::setInherited(bool inherited) {
    inherited_ = inherited;
    for (const auto& group : permissions_) {
        setSettableOf(*group, !inherited);
        for (const auto& child : group->childNodes())
            setSettableOf(*child, !inherited);
    }
    setUpdatingPermissions(true);
    resolveApplicableTo();
    setUpdatingPermissions(false);
    didChangeValueForKey(inheritedKeyPath);
}

void MVAclEntry::resolveApplicableTo() {
    if (permissions_.size() <= ACL_PERM_GROUPS) {
        setApplicableTo(KDLocalizedString::localize("This item", "ACL"));
        return;
    }
    bool othersOn = false;
    // The text is that of the states before "This item" is put right; the next run corrects it.
    auto text = resolveApplicabilityBoxes(othersOn);
    const auto& boxes = permissions_.back()->childNodes();
    if (applicableToInitialized_ && !boxes.empty()) {
        const NSTreeNode& itemsBox = *boxes.front();
        if (!othersOn)
            MVTreeNode::setStateOf(itemsBox, MVStateOn);
        setSettableOf(itemsBox,
                      !inherited_ && (othersOn || MVTreeNode::stateOf(itemsBox) == MVStateOff));
    }
    setApplicableTo(std::move(text));
    setApplicableToInitialized(true);
}

std::string MVAclEntry::resolveApplicabilityBoxes(bool& othersOn) {
    std::string text;
    std::int64_t previousState = MVStateOff;
    for (const auto& child : permissions_.back()->childNodes()) {
        auto* box = MVTreeNode::permissionOf(*child);
        const auto flag = box ? box->permission() : 0;
        const bool on = box && box->state() == MVStateOn;
        if (flag == ACL_ENTRY_ONLY_INHERIT) {
            text += on ? box->name() : KDLocalizedString::localize("Not this item", "ACL");
        } else if (on) {
            text.append(", ").append(box->name());
            if (flag != ACL_ENTRY_LIMIT_INHERIT)
                othersOn = true;
        }
        if (flag == ACL_ENTRY_LIMIT_INHERIT) {
            if (previousState == MVStateOff)
                box->setState(MVStateOff);
            box->setSettable(previousState == MVStateOn && !inherited_);
        }
        previousState = box ? box->state() : MVStateOff;
    }
    return text;
}

}  // namespace morvane
