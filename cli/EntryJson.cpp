// SPDX-License-Identifier: MIT
#include "EntryJson.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/MVAclOrigin.h>

#include <algorithm>
#include <nlohmann/json.hpp>

namespace morvane {

namespace {

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

/// Joins names with commas.
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

const char* nameOf(EntrySubject subject) {
    switch (subject) {
        case EntrySubject::user:
            return "user";
        case EntrySubject::group:
            return "group";
        case EntrySubject::owner:
            return "owner";
        case EntrySubject::owningGroup:
            return "owningGroup";
        case EntrySubject::creator:
            return "creator";
        case EntrySubject::creatorGroup:
            return "creatorGroup";
        case EntrySubject::everyone:
            return "everyone";
        case EntrySubject::nobody:
            return "nobody";
    }
    return "nobody";
}

/// The origin of the entries; null if none of them tells it.
std::shared_ptr<const MVAclOrigin> originOf(const EntryList& entries) {
    const auto read = std::find_if(entries.begin(), entries.end(),
                                   [](const auto& entry) { return entry->origin() != nullptr; });
    return read == entries.end() ? nullptr : (*read)->origin();
}

/// `origin` is that of the entry's list; null if it is not known.
Json jsonOfEntry(const MVAclEntry& entry, const MVAclOrigin* origin) {
    Json permissions = Json::array();
    for (const auto& group : entry.permissions())
        permissions.push_back(jsonOfNode(*group));
    return {
        {"identity", identityName(entry)},
        {"uuid", entry.uuid() ? Json(entry.uuid()->UUIDString()) : Json(nullptr)},
        {"isGroup", identityIsGroup(entry)},
        {"subject", nameOf(subjectOfEntry(entry))},
        {"tag", entry.tag()},
        {"letters", origin ? Json(lettersOfEntry(entry, origin->values().storage)) : Json(nullptr)},
        {"inherited", entry.inherited()},
        {"isAcl", entry.isAcl()},
        {"permissionGroup", entry.permissionGroup()},
        {"applicableTo", keysOfNames(entry.applicableTo())},
        {"canonicalScore", entry.canonicalScore()},
        {"permissions", std::move(permissions)}};
}

const char* nameOf(MVAclStorage storage) {
    switch (storage) {
        case MVAclStorage::posix:
            return "posix";
        case MVAclStorage::mode:
            return "mode";
        case MVAclStorage::nfs4:
            return "nfs4";
    }
    return "unknown";
}

}  // namespace

Json jsonOfEntries(const EntryList& entries) {
    Json array = Json::array();
    const auto origin = originOf(entries);
    for (const auto& entry : entries)
        array.push_back(jsonOfEntry(*entry, origin.get()));
    return array;
}

std::string entriesAsJson(const EntryList& entries) {
    constexpr int indent = 2;
    return jsonOfEntries(entries).dump(indent, ' ', false, Json::error_handler_t::replace) + '\n';
}

Json jsonOfNodes(const std::vector<std::shared_ptr<MVTreeNode>>& nodes) {
    Json array = Json::array();
    for (const auto& node : nodes)
        array.push_back(jsonOfNode(*node));
    return array;
}

Json jsonOfIdentity(const CBIdentity& identity) {
    return {{"identity", identity.name()},
            {"uuid", identity.uniqueIdentifier().UUIDString()},
            {"isGroup", identity.isGroup()}};
}

Json jsonOfListedItem(std::string_view path, const EntryList& entries) {
    auto item = jsonOfPath(path);
    const auto origin = originOf(entries);
    const auto* const known = origin ? &origin->values() : nullptr;
    item["kind"] = known ? Json(known->isDirectory ? "folder" : "file") : Json(nullptr);
    item["storage"] = known ? Json(nameOf(known->storage)) : Json(nullptr);
    const auto mask = [&](const std::string& text) {
        return text.empty() ? Json(nullptr) : Json(text);
    };
    const auto masks = masksHoldingBack(origin.get());
    item["mask"] = mask(masks.list);
    item["defaultMask"] = mask(masks.defaults);
    item["owner"] = known ? jsonOfOwner(known->owner, false) : Json(nullptr);
    item["group"] = known ? jsonOfOwner(known->group, true) : Json(nullptr);
    return item;
}

}  // namespace morvane
