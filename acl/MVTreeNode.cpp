// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <utility>

namespace morvane {
namespace {

/// Of the node of a box that has none below it.
constexpr NSBriefCoding boxCoding{
    .get =
        [](const NSObject& object, NSBriefCoding::Values& values) {
            const auto& node = static_cast<const MVTreeNode&>(object);
            const auto* const permission = MVTreeNode::permissionOf(node);
            if (!permission || !node.childNodes().empty())
                return false;
            values.text.reset();
            if (permission->hasName())
                values.text = permission->name();
            values.integers = {permission->permission(), permission->state()};
            return true;
        },
    .make = [](NSKeyedUnarchiver& coder,
               const NSBriefCoding::Values& values) -> std::shared_ptr<NSObject> {
        return coder.makeObject<MVTreeNode>(coder.makeObject<MVAclPermission>(
            values.text, static_cast<std::int32_t>(values.integers[0]), values.integers[1]));
    }};

/// Of a box's node.
const NSArchiveFront& boxFront() {
    // Never destroyed: another thread may decode while the process ends.
    static const auto& front = *new NSArchiveFront(
        {"root", "object", "name", "permission", "state", "children", "NS.objects"},
        {&MVTreeNode::classObject(), &MVAclPermission::classObject(), &NSArrayClass}, &boxCoding);
    return front;
}

}  // namespace

constinit const NSKeyPath MVTreeNode::representedObjectStateKeyPath{"representedObject.state",
                                                                    &MVAclPermission::stateKeyPath};

const NSClass& MVTreeNode::classObject() {
    static const NSClass c{"MVTreeNode", &NSTreeNode::classObject(), &initWithCoder, true};
    return c;
}

std::shared_ptr<MVTreeNode> MVTreeNode::treeNodeWithRepresentedObject(
    std::shared_ptr<MVAclPermission> permission) {
    return std::make_shared<MVTreeNode>(std::move(permission));
}

MVTreeNode::MVTreeNode(std::shared_ptr<MVAclPermission> permission)
    : NSTreeNode(std::move(permission)) {}

void MVTreeNode::encodeWithCoder(NSKeyedArchiver& coder) const {
    coder.encodeObject(representedObject().get(), "object");
    coder.encodeArchives(childNodes(), "children", boxFront());
}

std::shared_ptr<NSObject> MVTreeNode::initWithCoder(NSKeyedUnarchiver& coder) {
    // Never destroyed: another thread may decode while the process ends.
    static const auto& objectClasses = *new NSClassSet{&MVAclPermission::classObject()};
    auto node = coder.makeObject<MVTreeNode>(
        std::static_pointer_cast<MVAclPermission>(coder.decodeObject("object", objectClasses)));
    auto children = coder.decodeArchives("children", classObject(), boxFront());
    auto childNodes = node->mutableChildNodes();
    childNodes.reserve(children.size());
    for (auto& child : children)
        childNodes.append(std::static_pointer_cast<NSTreeNode>(std::move(child)));
    return node;
}

}  // namespace morvane
