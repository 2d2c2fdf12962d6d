// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace morvane {

/// A node of a tree: one represented object, ordered children that it owns, and a link to its
/// parent.
///
///     auto node = NSTreeNode::treeNodeWithRepresentedObject(MVFileSizeItem::init());
///     auto child = NSTreeNode::treeNodeWithRepresentedObject(MVFileSizeItem::init());
///     node->mutableChildNodes().append(child);
///     assert(child->parentNode() == node.get());
///
/// A node has at most one parent at a time. The parent link is not an owner; it is cleared when the
/// parent goes. Used on one thread at a time.
class MORVANE_EXPORT NSTreeNode : public NSObject {
  public:
    using Children = std::vector<std::shared_ptr<NSTreeNode>>;

    /// Changes a node's list of children and keeps their parent links right.
    class MORVANE_EXPORT MutableChildNodes {
      public:
        /// Takes `child` from its former parent, if it has one, and puts it last. Throws
        /// NSInvalidArgumentException for null and for a node above this one.
        void append(std::shared_ptr<NSTreeNode> child);
        /// Throws NSRangeException if there is no such child.
        void removeObjectAtIndex(std::size_t index);
        void reserve(std::size_t count) { node_.children_.reserve(count); }

      private:
        friend class NSTreeNode;
        explicit MutableChildNodes(NSTreeNode& node) : node_(node) {}
        NSTreeNode& node_;
    };

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    static std::shared_ptr<NSTreeNode> treeNodeWithRepresentedObject(
        std::shared_ptr<NSObject> object);

    explicit NSTreeNode(std::shared_ptr<NSObject> representedObject);
    ~NSTreeNode() override;

    const std::shared_ptr<NSObject>& representedObject() const;
    const Children& childNodes() const;
    /// The child at `index`. Throws NSRangeException if there is none.
    const std::shared_ptr<NSTreeNode>& childNodeAtIndex(std::size_t index) const;
    MutableChildNodes mutableChildNodes() { return MutableChildNodes(*this); }
    /// Null for a root.
    NSTreeNode* parentNode() const;

  private:
    std::shared_ptr<NSObject> representedObject_;
    Children children_;
    NSTreeNode* parent_ = nullptr;
};

}  // namespace morvane
