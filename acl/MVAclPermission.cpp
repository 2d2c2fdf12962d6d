// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>

namespace morvane {

constinit const NSKeyPath MVAclPermission::nameKeyPath{"name"};
constinit const NSKeyPath MVAclPermission::permissionKeyPath{"permission"};
constinit const NSKeyPath MVAclPermission::stateKeyPath{"state"};
constinit const NSKeyPath MVAclPermission::settableKeyPath{"settable"};

const NSClass& MVAclPermission::classObject() {
    static const NSClass c{"MVAclPermission", &NSObject::classObject(), &initWithCoder, true};
    return c;
}

MVAclPermission::MVAclPermission(std::optional<std::string_view> name, std::int32_t permission,
                                 std::int64_t state)
    : state_(state), permission_(permission), hasName_(name.has_value()) {
    if (name)
        name_ = KDLocalizedString::localize(*name, "ACL");
}

std::shared_ptr<MVAclPermission> MVAclPermission::init() {
    return initWithName(std::nullopt, ACL_READ_DATA, MVStateOff);
}

std::shared_ptr<MVAclPermission> MVAclPermission::initWithName(std::optional<std::string_view> name,
                                                               std::int32_t permission,
                                                               std::int64_t state) {
    return std::make_shared<MVAclPermission>(name, permission, state);
}

bool MVAclPermission::isEqual(const NSObject* other) const {
    if (!other || &other->objectClass() != &objectClass())
        return false;
    const auto& permission = static_cast<const MVAclPermission&>(*other);
    return permission.hasName_ == hasName_ && permission.name_ == name_;
}

void MVAclPermission::propagateStateOfPermissionNode(const NSTreeNode* node) {
    if (!node)
        return;
    for (const auto& child : node->childNodes())
        MVTreeNode::setStateOf(*child, MVTreeNode::stateOf(*node));
}

void MVAclPermission::convertToFilePermission() {
    const char* fileName = nullptr;
    switch (permission_) {
        case ACL_READ_DATA:
            fileName = "Read Data";
            break;
        case ACL_SEARCH:
            fileName = "Execute File";
            break;
        case ACL_WRITE_DATA:
            fileName = "Write Data";
            break;
        case ACL_APPEND_DATA:
            fileName = "Append Data";
            break;
        default:
            return;
    }
    setPermission(permission_);
    setName(fileName);
}

void MVAclPermission::encodeWithCoder(NSKeyedArchiver& coder) const {
    coder.encodeString(hasName_ ? std::optional(std::string_view(name_)) : std::nullopt, "name");
    coder.encodeInt32(permission_, "permission");
    coder.encodeInt64(state_, "state");
}

std::shared_ptr<NSObject> MVAclPermission::initWithCoder(NSKeyedUnarchiver& coder) {
    const auto name = coder.decodeText("name");
    const auto permission = coder.decodeInt32("permission");
    const auto state = coder.decodeInt64("state");
    return coder.makeObject<MVAclPermission>(name, permission, state);
}

bool MVAclPermission::hasName() const {
    return hasName_;
}

const std::string& MVAclPermission::name() const {
    return name_;
}

void MVAclPermission::setName(std::optional<std::string> name) {
    hasName_ = name.has_value();
    name_ = std::move(name).value_or(std::string());
    didChangeValueForKey(nameKeyPath);
}

std::int32_t MVAclPermission::permission() const {
    return permission_;
}

void MVAclPermission::setPermission(std::int32_t permission) {
    permission_ = permission;
    didChangeValueForKey(permissionKeyPath);
}

std::int64_t MVAclPermission::state() const {
    return state_;
}

void MVAclPermission::setState(std::int64_t state) {
    state_ = state;
    didChangeValueForKey(stateKeyPath);
}

bool MVAclPermission::settable() const {
    return settable_;
}

void MVAclPermission::setSettable(bool settable) {
    settable_ = settable;
    didChangeValueForKey(settableKeyPath);
}

}  // namespace morvane
