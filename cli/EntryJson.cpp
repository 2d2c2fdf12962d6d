// SPDX-License-Identifier: MIT
#include <MorvaneOperation/IdentityText.h>

#include <algorithm>
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
    return {{"name", permission ? Json(keyOfName(permission->name())) : Json(nullptr)},
            {"permission", permission ? permission->permission() : 0},
            {"state", MVTreeNode::stateOf(node)},
            {"settable", permission && permission->settable()},
            {"children", std::move(children)}};
}

/// Names with commas between them.
std::string keysOfNames(std::string_view names) {
    std::string keys;
    while (!names.empty()) {
        constexpr std::string_view comma = ", ";
        const auto end = std::min(names.find(comma), names.size());
        keys += (keys.empty() ? std::string_view() : comma);
        keys += keyOfName(names.substr(0, end));
        names.remove_prefix(std::min(end + comma.size(), names.size()));
    }
    return keys;
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
            {"applicableTo", keysOfNames(entry.applicableTo())},
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
