// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSTreeNode.h>

#include <algorithm>
#include <utility>

namespace morvane {

const NSClass& NSTreeNode::classObject() {
    static const NSClass c{"NSTreeNode", &NSObject::classObject(), nullptr};
    return c;
}

std::shared_ptr<NSTreeNode> NSTreeNode::treeNodeWithRepresentedObject(
    std::shared_ptr<NSObject> object) {
    return std::make_shared<NSTreeNode>(std::move(object));
}

NSTreeNode::NSTreeNode(std::shared_ptr<NSObject> representedObject)
    : representedObject_(std::move(representedObject)) {}

NSTreeNode::~NSTreeNode() {
    for (const auto& child : children_)
        child->parent_ = nullptr;
}

const std::shared_ptr<NSTreeNode>& NSTreeNode::childNodeAtIndex(std::size_t index) const {
    if (index >= children_.size())
        throwRangeException(index, children_.size());
    return children_[index];
}

void NSTreeNode::MutableChildNodes::append(std::shared_ptr<NSTreeNode> child) {
    if (!child)
        throw NSException(NSInvalidArgumentException, "A child node cannot be null.");
    for (const NSTreeNode* above = &node_; above; above = above->parent_) {
        if (above == child.get()) {
            throw NSException(NSInvalidArgumentException,
                              "A node cannot become a child of itself or of a node below it.");
        }
    }
    if (NSTreeNode* former = child->parent_) {
        const auto it = std::find(former->children_.begin(), former->children_.end(), child);
        former->children_.erase(it);
    }
    child->parent_ = &node_;
    node_.children_.push_back(std::move(child));
}

void NSTreeNode::MutableChildNodes::removeObjectAtIndex(std::size_t index) {
    auto& children = node_.children_;
    if (index >= children.size())
        throwRangeException(index, children.size());
    children[index]->parent_ = nullptr;
    children.erase(children.begin() + static_cast<std::ptrdiff_t>(index));
}

const std::shared_ptr<NSObject>& NSTreeNode::representedObject() const {
    return representedObject_;
}

const NSTreeNode::Children& NSTreeNode::childNodes() const {
    return children_;
}

NSTreeNode* NSTreeNode::parentNode() const {
    return parent_;
}

}  // namespace morvane
