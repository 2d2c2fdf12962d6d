// SPDX-License-Identifier: MIT
#include "SavedListText.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace morvane {

namespace {

std::uint32_t idOfOwner(const std::string& name, bool isGroup, std::uint32_t otherwise) {
    auto& database = CBIdentityAuthority::defaultIdentityAuthority().database();
    const auto record = isGroup ? database.groupWithName(name) : database.userWithName(name);
    if (record)
        return record->id;
    std::uint32_t id = 0;
    const auto* const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data(), end, id);
    return !name.empty() && error == std::errc() && rest == end ? id : otherwise;
}

/// The path without what says the same: "./" and "/" in front, "/" behind.
std::string_view bare(std::string_view path) {
    while (path.starts_with("./") || path.starts_with('/'))
        path.remove_prefix(path.front() == '/' ? 1 : 2);
    while (path.ends_with('/'))
        path.remove_suffix(1);
    return path == "." ? std::string_view() : path;
}

}  // namespace

EntryList entriesOfSavedList(const ListText& list, MVAclOrigin::Values values, Problem& problem) {
    values.owner = idOfOwner(list.owner, false, values.owner);
    values.group = idOfOwner(list.group, true, values.group);
    if (!list.nfs4.empty())
        values.storage = MVAclStorage::nfs4;
    else if (values.storage == MVAclStorage::nfs4)
        values.storage = MVAclStorage::posix;
    return entriesOfText(list, values, problem);
}

std::optional<std::string> placeBelow(std::string_view top, std::string_view path) {
    top = bare(top);
    path = bare(path);
    if (path == top)
        return std::string();
    if (top.empty())
        return std::string(path);
    if (!path.starts_with(top) || path[top.size()] != '/')
        return std::nullopt;
    return std::string(path.substr(top.size() + 1));
}

}  // namespace morvane
