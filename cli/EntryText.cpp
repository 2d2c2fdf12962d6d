// SPDX-License-Identifier: MIT
#include "EntryText.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace morvane {

namespace {

constexpr std::size_t columnCount = 6;
using Row = std::array<std::string, columnCount>;
constexpr std::size_t ruleColumn = 1;

Row rowOf(const MVAclEntry& entry, MVAclStorage storage) {
    const auto shown = [](const Phrase& text) { return escaped(text.localized()); };
    return {shown(whoText(entry)),          shown(ruleText(entry.tag())),
            lettersOfEntry(entry, storage), shown(permissionsText(entry)),
            shown(appliesToText(entry)),    entry.inherited() ? say("yes") : say("no")};
}

const char* markOf(std::int64_t state) {
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
    return markOf(MVTreeNode::stateOf(node)) +
           escaped(permission ? boxText(node).localized() : "?");
}

std::string nodesAsTree(const std::vector<std::shared_ptr<MVTreeNode>>& nodes, const Style& style) {
    std::string text;
    for (const auto& node : nodes)
        appendTree(text, *node, 0, style);
    return text;
}

std::string entryAsLine(const MVAclEntry& entry, std::string_view letters) {
    auto text = escaped(whoText(entry).localized());
    const auto add = [&](std::string_view part) { text += "  " + std::string(part); };
    add(escaped(ruleText(entry.tag()).localized()));
    add(letters);
    add(escaped(permissionsText(entry).localized()));
    add(escaped(appliesToText(entry).localized()));
    if (entry.inherited())
        add(inheritedText(entry).localized());
    return text;
}

MVAclStorage storageOf(const EntryList& entries) {
    for (const auto& entry : entries) {
        if (entry->origin())
            return entry->origin()->values().storage;
    }
    // Every POSIX list has flat entries, and no other list has one.
    return std::any_of(entries.begin(), entries.end(),
                       [](const auto& entry) { return !entry->isAcl(); })
               ? MVAclStorage::posix
               : MVAclStorage::nfs4;
}

HoldingMasks masksHoldingBack(const MVAclOrigin* origin) {
    const auto maskOf = [](const std::vector<std::uint8_t>& stored) {
        const auto list = posixListOfAttribute(stored);
        return list && list->isLimited() ? lettersOfRights(*list->mask) : std::string();
    };
    if (!origin)
        return {};
    return {maskOf(origin->storedLists().list), maskOf(origin->storedLists().defaults)};
}

std::vector<std::string> factsOfItem(const EntryList& entries) {
    const auto told = std::find_if(entries.begin(), entries.end(),
                                   [](const auto& entry) { return entry->origin() != nullptr; });
    if (told == entries.end())
        return {};
    const auto& item = (*told)->origin()->values();
    const auto masks = masksHoldingBack((*told)->origin().get());
    // TRANSLATORS: "file, POSIX list; user alice (owner), group staff (owning group)"
    std::vector<std::string> facts{
        escaped(say("%1, %2; %3, %4", kindText(item), storageText(item.storage),
                    phrase("%1 (owner)", ownerText(item)),
                    phrase("%1 (owning group)", owningGroupText(item))))};
    if (!masks.list.empty())
        facts.push_back(
            escaped(say("The mask %1 holds back rights that are stored; shown is what "
                        "is left.",
                        masks.list)));
    if (!masks.defaults.empty())
        facts.push_back(
            escaped(say("For new items inside, the mask %1 holds back rights that are "
                        "stored; shown is what is left.",
                        masks.defaults)));
    return facts;
}

std::string itemAsLines(const EntryList& entries, const Style& style) {
    std::string lines;
    for (const auto& fact : factsOfItem(entries))
        lines += style.faint(fact) + '\n';
    return lines;
}

void sortCanonically(EntryList& entries) {
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a->canonicalScore() > b->canonicalScore();
    });
}

bool identityIsGroup(const MVAclEntry& entry) {
    if (entry.identity())
        return entry.identity()->isGroup();
    const auto subject = subjectOfEntry(entry);
    return subject != EntrySubject::nobody && subject != EntrySubject::user &&
           subject != EntrySubject::owner;
}

std::string entriesAsTable(const EntryList& entries, bool tree, const Style& style) {
    const Row headings = {say("Who"),         say("Rule"),       say("Letters"),
                          say("Permissions"), say("Applies to"), say("Inherited")};
    const auto storage = storageOf(entries);
    std::vector<Row> rows;
    for (const auto& entry : entries)
        rows.push_back(rowOf(*entry, storage));

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
