// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSTreeNode.h>
#include <gtest/gtest.h>

#include <string>

namespace morvane {
namespace {

using Node = std::shared_ptr<NSTreeNode>;

Node node() {
    return NSTreeNode::treeNodeWithRepresentedObject(nullptr);
}

template <class Call>
std::string refusal(Call call) {
    try {
        call();
    } catch (const NSException& e) {
        return e.what();
    }
    return "none";
}

TEST(NSTreeNode, RepresentsItsObject) {
    const auto object = std::make_shared<NSObject>();
    EXPECT_EQ(NSTreeNode::treeNodeWithRepresentedObject(object)->representedObject(), object);
    EXPECT_EQ(node()->representedObject(), nullptr);
}

TEST(NSTreeNode, AChildKnowsItsParentAndStandsLast) {
    const auto parent = node();
    const auto a = node();
    const auto b = node();
    parent->mutableChildNodes().append(a);
    parent->mutableChildNodes().append(b);
    EXPECT_EQ(parent->childNodes(), (NSTreeNode::Children{a, b}));
    EXPECT_EQ(parent->childNodeAtIndex(1), b);
    EXPECT_EQ(a->parentNode(), parent.get());
    EXPECT_EQ(parent->parentNode(), nullptr);
}

TEST(NSTreeNode, ANewParentTakesTheChildFromTheFormer) {
    const auto first = node();
    const auto second = node();
    const auto child = node();
    first->mutableChildNodes().append(child);
    second->mutableChildNodes().append(child);
    EXPECT_TRUE(first->childNodes().empty());
    EXPECT_EQ(second->childNodes(), NSTreeNode::Children{child});
    EXPECT_EQ(child->parentNode(), second.get());
}

TEST(NSTreeNode, AppendingAChildAgainPutsItLast) {
    const auto parent = node();
    const auto a = node();
    const auto b = node();
    parent->mutableChildNodes().append(a);
    parent->mutableChildNodes().append(b);
    parent->mutableChildNodes().append(parent->childNodes().front());
    EXPECT_EQ(parent->childNodes(), (NSTreeNode::Children{b, a}));
    EXPECT_EQ(a->parentNode(), parent.get());
}

TEST(NSTreeNode, ARemovedChildHasNoParent) {
    const auto parent = node();
    const auto a = node();
    const auto b = node();
    parent->mutableChildNodes().append(a);
    parent->mutableChildNodes().append(b);
    parent->mutableChildNodes().removeObjectAtIndex(0);
    EXPECT_EQ(parent->childNodes(), NSTreeNode::Children{b});
    EXPECT_EQ(a->parentNode(), nullptr);
    EXPECT_EQ(b->parentNode(), parent.get());
}

TEST(NSTreeNode, TheEndOfAParentClearsItsChildrensLinks) {
    auto parent = node();
    const auto child = node();
    parent->mutableChildNodes().append(child);
    parent.reset();
    EXPECT_EQ(child->parentNode(), nullptr);
}

TEST(NSTreeNode, OwnsItsChildren) {
    const auto parent = node();
    auto child = node();
    const std::weak_ptr<NSTreeNode> watched = child;
    parent->mutableChildNodes().append(std::move(child));
    EXPECT_FALSE(watched.expired());
    parent->mutableChildNodes().removeObjectAtIndex(0);
    EXPECT_TRUE(watched.expired());
}

TEST(NSTreeNode, ANodeAboveCannotBecomeAChild) {
    const auto top = node();
    const auto middle = node();
    const auto bottom = node();
    top->mutableChildNodes().append(middle);
    middle->mutableChildNodes().append(bottom);
    const std::string text =
        "NSInvalidArgumentException: "
        "A node cannot become a child of itself or of a node below it.";
    EXPECT_EQ(refusal([&] { bottom->mutableChildNodes().append(top); }), text);
    EXPECT_EQ(refusal([&] { bottom->mutableChildNodes().append(middle); }), text);
    EXPECT_EQ(refusal([&] { top->mutableChildNodes().append(top); }), text);
    EXPECT_EQ(top->parentNode(), nullptr);
    EXPECT_EQ(middle->parentNode(), top.get());
    EXPECT_TRUE(bottom->childNodes().empty());
}

TEST(NSTreeNode, NullCannotBecomeAChild) {
    const auto parent = node();
    EXPECT_EQ(refusal([&] { parent->mutableChildNodes().append(nullptr); }),
              "NSInvalidArgumentException: A child node cannot be null.");
    EXPECT_TRUE(parent->childNodes().empty());
}

TEST(NSTreeNode, APositionBeyondTheChildrenIsRefused) {
    const auto parent = node();
    parent->mutableChildNodes().append(node());
    const std::string text =
        "NSRangeException: Index 1 is beyond the bounds of an array of 1 elements.";
    EXPECT_EQ(refusal([&] { parent->childNodeAtIndex(1); }), text);
    EXPECT_EQ(refusal([&] { parent->mutableChildNodes().removeObjectAtIndex(1); }), text);
}

}  // namespace
}  // namespace morvane
