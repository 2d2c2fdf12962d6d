// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <utility>

namespace morvane {

constinit const NSKeyPath MVAclEntry::inheritedKeyPath{"inherited"};
constinit const NSKeyPath MVAclEntry::applicableToInitializedKeyPath{"applicableToInitialized"};
constinit const NSKeyPath MVAclEntry::updatingPermissionsKeyPath{"updatingPermissions"};
constinit const NSKeyPath MVAclEntry::tagKeyPath{"tag"};
constinit const NSKeyPath MVAclEntry::permissionGroupKeyPath{"permissionGroup"};
constinit const NSKeyPath MVAclEntry::uuidKeyPath{"uuid"};
constinit const NSKeyPath MVAclEntry::permissionsKeyPath{"permissions"};
constinit const NSKeyPath MVAclEntry::identityKeyPath{"identity"};
constinit const NSKeyPath MVAclEntry::applicableToKeyPath{"applicableTo"};
constinit const NSKeyPath MVAclEntry::identitiesKeyPath{"identities"};

const NSClass& MVAclEntry::classObject() {
    static const NSClass c{"MVAclEntry", &NSObject::classObject(), &initWithCoder, true};
    return c;
}

std::shared_ptr<MVAclEntry> MVAclEntry::init() {
    return initWithUuid(std::nullopt, 0, {}, false);
}

std::shared_ptr<MVAclEntry> MVAclEntry::initWithUuid(const std::optional<NSUUID>& uuid,
                                                     std::int32_t tag, Permissions permissions,
                                                     bool inherited) {
    auto entry = std::make_shared<MVAclEntry>(Private());
    entry->setUp(uuid, tag, std::move(permissions), inherited);
    return entry;
}

void MVAclEntry::setUp(const std::optional<NSUUID>& uuid, std::int32_t tag, Permissions permissions,
                       bool inherited) {
    uuid_ = uuid;
    tag_ = tag;
    setPermissions(std::move(permissions));
    setInherited(inherited);
    setUpdatingPermissions(true);
    resolvePermissionGroup();
    setUpdatingPermissions(false);
    identitiesObservation_ = NSNotificationCenter::defaultCenter().addObserver(
        MVIdentitiesUpdated, [this](const NSNotification& n) { identitiesUpdated(n); });
}

MVAclEntry::~MVAclEntry() {
    identitiesObservation_ = {};
    stopObservingNodes();
}

void MVAclEntry::setApplicableToInitialized(bool initialized) {
    applicableToInitialized_ = initialized;
    didChangeValueForKey(applicableToInitializedKeyPath);
}

void MVAclEntry::setUpdatingPermissions(bool updating) {
    updatingPermissions_ = updating;
    didChangeValueForKey(updatingPermissionsKeyPath);
}

void MVAclEntry::setTag(std::int32_t tag) {
    tag_ = tag;
    didChangeValueForKey(tagKeyPath);
}

void MVAclEntry::setUuid(const std::optional<NSUUID>& uuid) {
    identity();  // stays that of the former
    uuid_ = uuid;
    didChangeValueForKey(uuidKeyPath);
}

void MVAclEntry::setIdentity(CBIdentityRef identity) {
    identity_ = std::move(identity);
    isIdentityKnown_ = true;
    setUuid(identity_ ? std::optional(identity_->uniqueIdentifier()) : std::nullopt);
    didChangeValueForKey(identityKeyPath);
}

void MVAclEntry::setFoundIdentity(CBIdentityRef identity) {
    if (identity && uuid_ != identity->uniqueIdentifier())
        return;
    const bool isNews = isIdentityKnown_ && identity_ != identity;
    identity_ = std::move(identity);
    isIdentityKnown_ = true;
    if (isNews)
        didChangeValueForKey(identityKeyPath);
}

void MVAclEntry::setApplicableTo(std::string text) {
    applicableTo_ = std::move(text);
    didChangeValueForKey(applicableToKeyPath);
}

void MVAclEntry::setPermissions(Permissions permissions) {
    std::size_t nodes = permissions.size();
    for (const auto& group : permissions) {
        if (!group)
            throw NSException(NSInvalidArgumentException, "A group node cannot be null.");
        nodes += group->childNodes().size();
    }
    stopObservingNodes();
    permissions_ = std::move(permissions);
    observedNodes_.reserve(nodes);
    for (const auto& group : permissions_) {
        observeNode(group);
        for (const auto& child : group->childNodes())
            observeNode(child);
    }
    didChangeValueForKey(permissionsKeyPath);
}

void MVAclEntry::observeNode(const std::shared_ptr<NSTreeNode>& node) {
    auto* permission = MVTreeNode::permissionOf(*node);
    if (!permission)
        return;
    observedNodes_.push_back(node);
    permission->addObserver(this, MVTreeNode::representedObjectStateKeyPath, *node);
}

void MVAclEntry::stopObservingNodes() {
    for (const auto& node : observedNodes_) {
        MVTreeNode::permissionOf(*node)->removeObserver(
            this, MVTreeNode::representedObjectStateKeyPath, *node);
    }
    observedNodes_.clear();
}

bool MVAclEntry::isAcl() const {
    return !permissions_.empty() && !permissions_.front()->childNodes().empty();
}

std::int64_t MVAclEntry::canonicalScore() const {
    // Unsigned on purpose: tag 0 wraps to the highest score.
    const std::int64_t score = static_cast<std::uint32_t>(tag_) - std::uint32_t{1};
    return inherited_ ? score - 5 * inheritanceLevel() : score;
}

bool MVAclEntry::isShallow() const {
    for (const auto& group : permissions_) {
        const auto* permission = MVTreeNode::permissionOf(*group);
        if (permission && permission->state() != MVStateOff &&
            permission->permission() != MVAclMarkerAppliesTo) {
            return false;
        }
    }
    return true;
}

MVIdentities::List MVAclEntry::identities() const {
    auto& lists = MVIdentities::sharedIdentities();
    if (isAcl())
        return lists.fullNamedIdentities();
    return identity() && identity()->isGroup() ? lists.fullNamedGroups() : lists.fullNamedUsers();
}

const std::vector<std::int32_t>& MVAclEntry::tags() const {
    static const std::vector<std::int32_t> tags{MVAclTagAllow, MVAclTagDeny};
    return tags;
}

const std::vector<std::int64_t>& MVAclEntry::permissionGroups() const {
    static const std::vector<std::int64_t> aclGroups{
        MVAclGroupAll, MVAclGroupReadWrite, MVAclGroupRead, MVAclGroupWrite, MVAclGroupCustom};
    static const std::vector<std::int64_t> flatGroups{MVAclGroupAll,  MVAclGroupReadWrite,
                                                      MVAclGroupRead, MVAclGroupWrite,
                                                      MVAclGroupNone, MVAclGroupCustom};
    return isAcl() ? aclGroups : flatGroups;
}

void MVAclEntry::identitiesUpdated(const NSNotification&) {
    didChangeValueForKey(identitiesKeyPath);
}

const std::vector<const NSKeyPath*>& MVAclEntry::observableKeyPaths() {
    static const std::vector<const NSKeyPath*> keyPaths{&identityKeyPath, &tagKeyPath,
                                                        &permissionGroupKeyPath, &inheritedKeyPath};
    return keyPaths;
}

void MVAclEntry::addObserver(NSKeyValueObserver* observer) {
    for (const auto* keyPath : observableKeyPaths())
        addObserver(observer, *keyPath);
}

void MVAclEntry::removeObserver(NSKeyValueObserver* observer) {
    for (const auto* keyPath : observableKeyPaths())
        removeObserver(observer, *keyPath);
}

namespace {

/// Null past the end.
template <class Nodes>
const NSTreeNode* nodeAt(const Nodes* nodes, std::size_t index) {
    return nodes && index < nodes->size() ? (*nodes)[index].get() : nullptr;
}

bool sameBox(const NSTreeNode& mine, const NSTreeNode* other) {
    const auto* a = MVTreeNode::permissionOf(mine);
    const auto* b = other ? MVTreeNode::permissionOf(*other) : nullptr;
    return (a ? a->state() : 0) == (b ? b->state() : 0) &&
           (a ? a->permission() : 0) == (b ? b->permission() : 0);
}

}  // namespace

bool MVAclEntry::isEqual(const NSObject* object) const {
    if (!object || !object->isKindOfClass(objectClass()))
        return false;
    const auto& other = *static_cast<const MVAclEntry*>(object);
    if (tag_ != other.tag_ || inherited_ != other.inherited_ || isAcl() != other.isAcl())
        return false;
    if (!identity() || !other.identity() ||
        identity()->uniqueIdentifier() != other.identity()->uniqueIdentifier()) {
        return false;
    }
    const bool acl = isAcl();
    for (std::size_t i = 0; i < permissions_.size(); ++i) {
        const NSTreeNode& group = *permissions_[i];
        const NSTreeNode* otherGroup = nodeAt(&other.permissions_, i);
        if (!acl) {
            if (!sameBox(group, otherGroup))
                return false;
            continue;
        }
        const auto* otherBoxes = otherGroup ? &otherGroup->childNodes() : nullptr;
        for (std::size_t j = 0; j < group.childNodes().size(); ++j) {
            if (!sameBox(*group.childNodes()[j], nodeAt(otherBoxes, j)))
                return false;
        }
    }
    return true;
}

void MVAclEntry::encodeWithCoder(NSKeyedArchiver& coder) const {
    coder.encodeUUID(uuid_, "uuid");
    coder.encodeInt32(tag_, "tag");
    coder.encodeObjects(permissions_, "permissions");
    coder.encodeBool(inherited_, "inherited");
    // Peers that do not know this key ignore it.
    if (origin_)
        coder.encodeObject(origin_.get(), "origin");
}

std::shared_ptr<NSObject> MVAclEntry::initWithCoder(NSKeyedUnarchiver& coder) {
    // Never destroyed: another thread may decode while the process ends.
    static const auto& classes =
        *new NSClassSet{&NSArrayClass, &MVTreeNode::classObject(), &MVAclPermission::classObject()};
    const auto uuid = coder.decodeUUID("uuid");
    const auto tag = coder.decodeInt32("tag");
    // The class of permissions is listed because nodes hold them; in the array itself they are
    // refused.
    auto permissions = coder.decodeObjects<MVTreeNode>("permissions", classes);
    const bool inherited = coder.decodeBool("inherited");
    static const auto& originClasses = *new NSClassSet{&MVAclOrigin::classObject()};
    auto origin = coder.decodeObject("origin", originClasses);
    auto entry = coder.makeObject<MVAclEntry>(Private());
    entry->setUp(uuid, tag, std::move(permissions), inherited);
    entry->setOrigin(std::static_pointer_cast<const MVAclOrigin>(std::move(origin)));
    return entry;
}

bool MVAclEntry::inherited() const {
    return inherited_;
}

bool MVAclEntry::applicableToInitialized() const {
    return applicableToInitialized_;
}

bool MVAclEntry::updatingPermissions() const {
    return updatingPermissions_;
}

std::int32_t MVAclEntry::tag() const {
    return tag_;
}

std::int64_t MVAclEntry::permissionGroup() const {
    return permissionGroup_;
}

const std::optional<NSUUID>& MVAclEntry::uuid() const {
    return uuid_;
}

const MVAclEntry::Permissions& MVAclEntry::permissions() const {
    return permissions_;
}

const CBIdentityRef& MVAclEntry::identity() const {
    if (!isIdentityKnown_) {
        const auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
        identity_ = uuid_ ? CBIdentity::identityWithUniqueIdentifier(*uuid_, authority)
                          : CBIdentity::identityWithName("everyone", authority);
        isIdentityKnown_ = true;
    }
    return identity_;
}

const std::string& MVAclEntry::applicableTo() const {
    return applicableTo_;
}

const std::shared_ptr<const MVAclOrigin>& MVAclEntry::origin() const {
    return origin_;
}

void MVAclEntry::setOrigin(std::shared_ptr<const MVAclOrigin> origin) {
    origin_ = std::move(origin);
}

}  // namespace morvane
