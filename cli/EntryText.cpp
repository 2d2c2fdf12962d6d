// SPDX-License-Identifier: MIT
#include "EntryText.h"

#include <MorvaneOperation/IdentityText.h>

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
        text += (text.empty() ? "" : ", ") + part;
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
        parts.push_back((group->state() == MVStateMixed ? "part of " : "") + group->name());
    }
    return parts.empty() ? "Custom" : "Custom (" + joined(parts) + ")";
}

std::string groupText(const MVAclEntry& entry) {
    switch (entry.permissionGroup()) {
        case MVAclGroupAll:
            return "All";
        case MVAclGroupReadWrite:
            return "Read and Write";
        case MVAclGroupRead:
            return "Read";
        case MVAclGroupWrite:
            return "Write";
        case MVAclGroupNone:
            return "None";
        default:
            return customGroup(entry);
    }
}

std::string ruleText(const MVAclEntry& entry) {
    if (entry.tag() == MVAclTagAllow)
        return "Allow";
    return entry.tag() == MVAclTagDeny ? "Deny" : "Tag " + std::to_string(entry.tag());
}

std::optional<CBPosixIdentity> posixIdentity(const MVAclEntry& entry) {
    return entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
}

std::string whoText(const MVAclEntry& entry) {
    const auto who = posixIdentity(entry);
    auto text = entry.identity() ? identityText(*entry.identity()) : identityName(entry);
    if (!entry.isAcl() && who && !std::holds_alternative<CBEveryone>(*who))
        text += identityIsGroup(entry) ? " (owning group)" : " (owner)";
    return text;
}

Row rowOf(const MVAclEntry& entry) {
    return {escaped(whoText(entry)), ruleText(entry), escaped(groupText(entry)),
            escaped(entry.applicableTo()), entry.inherited() ? "yes" : "no"};
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

std::string boxAsText(const NSTreeNode& node) {
    const auto* permission = MVTreeNode::permissionOf(node);
    return boxText(MVTreeNode::stateOf(node)) + escaped(permission ? permission->name() : "?");
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
    return entry.inherited() ? text + "  inherited" : text;
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
    const Row headings = {"Who", "Rule", "Permissions", "Applies to", "Inherited"};
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
