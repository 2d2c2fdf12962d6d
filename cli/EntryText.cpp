// SPDX-License-Identifier: MIT
#include "EntryText.h"

#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <variant>

namespace morvane {

namespace {

constexpr std::size_t columnCount = 5;
using Row = std::array<std::string, columnCount>;
constexpr std::size_t ruleColumn = 1;
constexpr std::size_t ruleGroups = 3;

std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const auto& part : parts)
        text += (text.empty() ? "" : say(", ")) + part;
    return text;
}

/// What a custom group is made of: "Custom (Read, part of Write)".
std::string customGroup(const MVAclEntry& entry) {
    std::vector<std::string> parts;
    for (std::size_t i = 0; i != std::min(ruleGroups, entry.permissions().size()); ++i) {
        const auto& node = *entry.permissions()[i];
        const auto* group = MVTreeNode::permissionOf(node);
        if (!group || group->state() == MVStateOff)
            continue;
        const auto name = nameOf(node);
        // TRANSLATORS: Some of the boxes of a group are on: "part of Read".
        parts.push_back(group->state() == MVStateMixed ? say("part of %1", name) : name);
    }
    return parts.empty() ? say("Custom") : say("Custom (%1)", joined(parts));
}

std::string groupText(const MVAclEntry& entry) {
    // What the menu of permissions has.
    const auto choice = [](const char* key) {
        return Phrase::inTable("Permissions", key).localized();
    };
    switch (entry.permissionGroup()) {
        case MVAclGroupAll:
            return choice(translatable("Permissions", "All"));
        case MVAclGroupReadWrite:
            return choice(translatable("Permissions", "Read and Write"));
        case MVAclGroupRead:
            return choice(translatable("Permissions", "Read"));
        case MVAclGroupWrite:
            return choice(translatable("Permissions", "Write"));
        case MVAclGroupNone:
            return choice(translatable("Permissions", "None"));
        default:
            return customGroup(entry);
    }
}

std::string ruleText(const MVAclEntry& entry) {
    // TRANSLATORS: An entry's rule: it allows what is on.
    if (entry.tag() == MVAclTagAllow)
        return say("Allow");
    return entry.tag() == MVAclTagDeny ? say("Deny") : say("Tag %1", entry.tag());
}

std::optional<CBPosixIdentity> posixIdentity(const MVAclEntry& entry) {
    return entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
}

std::string whoText(const MVAclEntry& entry) {
    const auto who = posixIdentity(entry);
    const auto text = identityText(entry);
    if (entry.isAcl() || !who || std::holds_alternative<CBEveryone>(*who))
        return text.localized();
    return identityIsGroup(entry) ? say("%1 (owning group)", text) : say("%1 (owner)", text);
}

Row rowOf(const MVAclEntry& entry) {
    return {escaped(whoText(entry)), ruleText(entry), escaped(groupText(entry)),
            escaped(entry.applicableTo()), entry.inherited() ? say("yes") : say("no")};
}

const char* boxText(std::int64_t state) {
    if (state == MVStateOn)
        return "[x] ";
    return state == MVStateMixed ? "[-] " : "[ ] ";
}

void appendTree(std::string& text, const NSTreeNode& node, std::size_t depth, const Style& style) {
    const std::string line = boxAsText(node);
    const bool off = MVTreeNode::stateOf(node) == MVStateOff;
    text += std::string(4 * depth, ' ') + (off ? style.faint(line) : line) + '\n';
    for (const auto& child : node.childNodes())
        appendTree(text, *child, depth + 1, style);
}

}  // namespace

std::string nameOf(const NSTreeNode& node) {
    const auto* permission = MVTreeNode::permissionOf(node);
    // The names of a converted entry are keys still.
    return permission ? KDLocalizedString::localize(permission->name(), "ACL") : std::string();
}

std::string keyOfName(std::string_view name) {
    const auto isOf = [&](std::string_view key) {
        return key == name || KDLocalizedString::localize(key, "ACL") == name;
    };
    for (const char* key : {"Applies To", "Execute", "Not this item"}) {
        if (isOf(key))
            return key;
    }
    const auto find = [&](const acl_perm_entry* row) {
        while (row->name && !isOf(row->name))
            ++row;
        return row->name;
    };
    for (const acl_perm_group* group = acl_perms; group->name; ++group) {
        if (isOf(group->name))
            return group->name;
        if (const char* const key = find(group->perms))
            return key;
    }
    const char* const key = find(acl_flags);
    return key ? key : std::string(name);
}

std::string boxAsText(const NSTreeNode& node) {
    const auto* permission = MVTreeNode::permissionOf(node);
    return boxText(MVTreeNode::stateOf(node)) + escaped(permission ? nameOf(node) : "?");
}

std::string nodesAsTree(const std::vector<std::shared_ptr<MVTreeNode>>& nodes, const Style& style) {
    std::string text;
    for (const auto& node : nodes)
        appendTree(text, *node, 0, style);
    return text;
}

std::string entryAsLine(const MVAclEntry& entry) {
    const auto row = rowOf(entry);
    std::string text = row[0];
    for (std::size_t i = 1; i + 1 < columnCount; ++i)
        text += row[i].empty() ? "" : "  " + row[i];
    return entry.inherited() ? text + "  " + say("inherited") : text;
}

void sortCanonically(EntryList& entries) {
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a->canonicalScore() > b->canonicalScore();
    });
}

bool identityIsGroup(const MVAclEntry& entry) {
    if (entry.identity())
        return entry.identity()->isGroup();
    const auto who = posixIdentity(entry);
    return who && !std::holds_alternative<CBPosixUser>(*who);
}

std::string entriesAsTable(const EntryList& entries, bool tree, const Style& style) {
    const Row headings = {say("Who"), say("Rule"), say("Permissions"), say("Applies to"),
                          say("Inherited")};
    std::vector<Row> rows;
    for (const auto& entry : entries)
        rows.push_back(rowOf(*entry));

    std::array<std::size_t, columnCount> widths{};
    for (std::size_t i = 0; i != columnCount; ++i) {
        widths[i] = columnsOf(headings[i]);
        for (const auto& row : rows)
            widths[i] = std::max(widths[i], columnsOf(row[i]));
    }
    const auto cell = [&](const Row& row, std::size_t i) {
        // Nothing stands behind the last column.
        return i + 1 == columnCount ? row[i] : padded(row[i], widths[i]) + "  ";
    };

    std::string text;
    std::string heading;
    for (std::size_t i = 0; i != columnCount; ++i)
        heading += cell(headings, i);
    text += style.heading(heading) + '\n';
    for (std::size_t i = 0; i != rows.size(); ++i) {
        for (std::size_t j = 0; j != columnCount; ++j) {
            const std::string content = cell(rows[i], j);
            if (j == ruleColumn)
                text +=
                    entries[i]->tag() == MVAclTagDeny ? style.bad(content) : style.good(content);
            else
                text += content;
        }
        text += '\n';
        if (tree) {
            for (const auto& group : entries[i]->permissions())
                appendTree(text, *group, 1, style);
        }
    }
    return text;
}

}  // namespace morvane
