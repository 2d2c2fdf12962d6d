// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/platform/foundation/NSTreeNode.h>

namespace morvane {

/// A node of a permission tree: a check box and the nodes below it. Travels in keyed archives, each
/// child as an archive of its own.
///
///     auto group = MVTreeNode::treeNodeWithRepresentedObject(
///         MVAclPermission::initWithName("Read", 2, MVStateOff));
///     group->mutableChildNodes().append(MVTreeNode::treeNodeWithRepresentedObject(
///         MVAclPermission::initWithName("Read Data", ACL_READ_DATA, MVStateOn)));
///     assert(MVTreeNode::stateOf(*group) == MVStateOff);   // the entry decides it, not the node
///
/// A node owns its check box and its children. A decoded node may lack a check box; it then reads
/// as off and ignores what is written to it. Main thread.
class MORVANE_EXPORT MVTreeNode : public NSTreeNode {
  public:
    /// "representedObject.state": registered on the check box, with the node as origin.
    static const NSKeyPath representedObjectStateKeyPath;

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
    static bool supportsSecureCoding() { return true; }

    static std::shared_ptr<MVTreeNode> treeNodeWithRepresentedObject(
        std::shared_ptr<MVAclPermission> permission);

    explicit MVTreeNode(std::shared_ptr<MVAclPermission> permission);

    /// The check box of any node of the tree; null if it has none.
    static MVAclPermission* permissionOf(const NSTreeNode& node) {
        NSObject* object = node.representedObject().get();
        return object && object->isKindOfClass(MVAclPermission::classObject())
                   ? static_cast<MVAclPermission*>(object)
                   : nullptr;
    }
    static std::int64_t stateOf(const NSTreeNode& node) {
        const auto* permission = permissionOf(node);
        return permission ? permission->state() : MVStateOff;
    }
    static void setStateOf(const NSTreeNode& node, std::int64_t state) {
        if (auto* permission = permissionOf(node))
            permission->setState(state);
    }

    void encodeWithCoder(NSKeyedArchiver& coder) const override;
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);
};

}  // namespace morvane
