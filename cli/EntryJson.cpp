// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>

#include <nlohmann/json.hpp>

#include "EntryText.h"

namespace morvane {

namespace {

// Keys in the order in which they are put in.
using Json = nlohmann::ordered_json;

Json jsonOfNode(const NSTreeNode& node) {
    const auto* permission = MVTreeNode::permissionOf(node);
    Json children = Json::array();
    for (const auto& child : node.childNodes())
        children.push_back(jsonOfNode(*child));
    return {{"name", permission ? Json(permission->name()) : Json(nullptr)},
            {"permission", permission ? permission->permission() : 0},
            {"state", MVTreeNode::stateOf(node)},
            {"settable", permission && permission->settable()},
            {"children", std::move(children)}};
}

Json jsonOfEntry(const MVAclEntry& entry) {
    Json permissions = Json::array();
    for (const auto& group : entry.permissions())
        permissions.push_back(jsonOfNode(*group));
    return {{"identity", identityName(entry)},
            {"uuid", entry.uuid() ? Json(entry.uuid()->UUIDString()) : Json(nullptr)},
            {"isGroup", identityIsGroup(entry)},
            {"tag", entry.tag()},
            {"inherited", entry.inherited()},
            {"isAcl", entry.isAcl()},
            {"permissionGroup", entry.permissionGroup()},
            {"applicableTo", entry.applicableTo()},
            {"canonicalScore", entry.canonicalScore()},
            {"permissions", std::move(permissions)}};
}

std::string textOf(const Json& json) {
    constexpr int indent = 2;
    return json.dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string entriesAsJson(const EntryList& entries) {
    Json array = Json::array();
    for (const auto& entry : entries)
        array.push_back(jsonOfEntry(*entry));
    return textOf(array);
}

std::string nodesAsJson(const std::vector<std::shared_ptr<MVTreeNode>>& nodes) {
    Json array = Json::array();
    for (const auto& node : nodes)
        array.push_back(jsonOfNode(*node));
    return textOf(array);
}

}  // namespace morvane
