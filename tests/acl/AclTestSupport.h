// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/FakeMainLoop.h"
#include "platform/fake/FakeUserDatabase.h"

namespace morvane::acltest {

/// A user database with alice (1000, logged in) and staff (a group), and a loop turned by hand.
struct World {
    FakeUserDatabaseInstallation users;
    FakeMainLoopInstallation loop;
};

inline std::shared_ptr<MVTreeNode> node(std::string_view name, std::int32_t permission,
                                        std::int64_t state,
                                        const std::vector<std::int64_t>& children = {}) {
    auto made = MVTreeNode::treeNodeWithRepresentedObject(
        MVAclPermission::initWithName(name, permission, state));
    std::uint32_t bit = 1;
    for (const auto childState : children) {
        bit *= 2;
        made->mutableChildNodes().append(node("box", static_cast<std::int32_t>(bit), childState));
    }
    return made;
}

/// Group nodes without boxes, in the given states.
inline MVAclEntry::Permissions flatTree(std::int64_t r, std::int64_t w, std::int64_t a) {
    return {node("Read", 2, r), node("Write", 2, w), node("Administration", 2, a)};
}

inline MVAclPermission& box(const MVAclEntry& entry, std::size_t group) {
    return *MVTreeNode::permissionOf(*entry.permissions().at(group));
}
inline MVAclPermission& box(const MVAclEntry& entry, std::size_t group, std::size_t child) {
    return *MVTreeNode::permissionOf(*entry.permissions().at(group)->childNodeAtIndex(child));
}

inline std::vector<std::int64_t> states(const MVAclEntry& entry, std::size_t group) {
    std::vector<std::int64_t> all;
    for (const auto& child : entry.permissions().at(group)->childNodes())
        all.push_back(MVTreeNode::stateOf(*child));
    return all;
}
inline std::vector<std::string> names(const MVAclEntry& entry, std::size_t group) {
    std::vector<std::string> all;
    for (const auto& child : entry.permissions().at(group)->childNodes())
        all.push_back(MVTreeNode::permissionOf(*child)->name());
    return all;
}
inline void setApplicability(const MVAclEntry& entry, std::int64_t thisItem, std::int64_t files,
                             std::int64_t folders, std::int64_t all) {
    // In an order in which no box locks a later one.
    box(entry, 3, 1).setState(files);
    box(entry, 3, 2).setState(folders);
    box(entry, 3, 3).setState(all);
    box(entry, 3, 0).setState(thisItem);
}

/// Writes down the key paths that it is told of.
struct Recorder final : NSKeyValueObserver {
    std::vector<std::string> told;
    void observeValueForKeyPath(const NSKeyPath& keyPath, NSObject&) override {
        told.emplace_back(keyPath.name);
    }
};

template <class F>
std::string exceptionName(F&& f) {
    try {
        std::forward<F>(f)();
    } catch (const NSException& e) {
        return e.name();
    }
    return "none";
}

}  // namespace morvane::acltest
