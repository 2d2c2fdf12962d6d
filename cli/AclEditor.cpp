// SPDX-License-Identifier: MIT
#include "AclEditor.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <variant>

namespace morvane {

namespace {

constexpr auto nobodysNumber = std::numeric_limits<std::uint32_t>::max();

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

std::string nameOfBox(const NSTreeNode& node) {
    return boxText(node).localized();
}

/// Whether a box is meant by `name`: in the language of the user, or in English.
bool isNamed(const NSTreeNode& node, std::string_view name) {
    const auto own = nameOfBox(node);
    return sameName(own, name) || sameName(keyOfName(own), name);
}

/// "'Read', 'Read Data', ...": what may stand where a name was not known.
std::string names(const MVAclEntry& entry) {
    std::string text;
    const auto add = [&](const NSTreeNode& node) {
        text += (text.empty() ? "" : say(", ")) + "'" + escaped(nameOfBox(node)) + "'";
    };
    for (const auto& group : entry.permissions()) {
        add(*group);
        for (const auto& box : group->childNodes())
            add(*box);
    }
    return text;
}

NSTreeNode* find(const MVAclEntry& entry, std::string_view name) {
    const auto slash = name.find('/');
    const auto groupName = slash == name.npos ? std::string_view() : name.substr(0, slash);
    const auto boxName = slash == name.npos ? name : name.substr(slash + 1);
    for (const auto& group : entry.permissions()) {
        if (slash == name.npos && isNamed(*group, boxName))
            return group.get();
        if (slash != name.npos && !isNamed(*group, groupName))
            continue;
        for (const auto& box : group->childNodes()) {
            if (isNamed(*box, boxName))
                return box.get();
        }
    }
    return nullptr;
}

/// Null if the entry has none by itself.
const NSTreeNode* executionBox(const MVAclEntry& entry) {
    if (entry.permissions().empty())
        return nullptr;
    for (const auto& box : entry.permissions().front()->childNodes()) {
        const auto* permission = MVTreeNode::permissionOf(*box);
        if (permission && static_cast<std::uint32_t>(permission->permission()) == ACL_SEARCH)
            return box.get();
    }
    return nullptr;
}

std::optional<std::uint32_t> number(std::string_view text) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

}  // namespace

CBIdentityRef identityWritten(std::string_view who, Problem& problem) {
    auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
    if (who == "everyone")
        return CBIdentity::identityWithName("everyone", authority);
    for (const bool isGroup : {false, true}) {
        if (who == (isGroup ? "creator-group" : "creator"))
            return CBIdentity::identityWithUniqueIdentifier(uuidOfPosixIdentity(CBCreator{isGroup}),
                                                            authority);
    }
    const bool isUser = who.starts_with("user:");
    if (!isUser && !who.starts_with("group:")) {
        problem =
            say("'%1' is nobody; write user:NAME, group:NAME, everyone, creator or "
                "creator-group",
                escaped(who));
        return nullptr;
    }
    const std::string name(who.substr(who.find(':') + 1));
    auto& database = authority.database();
    const auto record = isUser ? database.userWithName(name) : database.groupWithName(name);
    auto id = record ? std::optional(record->id) : number(name);
    if (!id) {
        problem = isUser ? say("there is no user '%1'; check the spelling, or write its number",
                               escaped(name))
                         : say("there is no group '%1'; check the spelling, or write its number",
                               escaped(name));
        return nullptr;
    }
    if (*id == nobodysNumber) {
        problem = say("no user or group can have the number %1; the system takes it for none",
                      nobodysNumber);
        return nullptr;
    }
    const auto uuid =
        isUser ? uuidOfPosixIdentity(CBPosixUser{*id}) : uuidOfPosixIdentity(CBPosixGroup{*id});
    if (auto known = CBIdentity::identityWithUniqueIdentifier(uuid, authority))
        return known;
    // An id without a name may stand in a list as well.
    return std::make_shared<const CBIdentity>(uuid, (isUser ? "uid " : "gid ") + name, !isUser);
}

Problem AclEditor::known(std::size_t entry) const {
    if (entry < entries_.size())
        return std::nullopt;
    return entries_.empty()
               ? say("the list has no entries")
               : say("there is no entry %1; the list has %2", entry + 1, entries_.size());
}

Problem AclEditor::changeable(std::size_t entry) const {
    if (const auto problem = known(entry))
        return problem;
    if (entries_[entry]->inherited())
        return say("entry %1 is inherited; make it the item's own first", entry + 1);
    return std::nullopt;
}

Problem AclEditor::add(std::string_view who) {
    Problem problem;
    auto identity = identityWritten(who, problem);
    if (problem)
        return problem;
    const bool folder = isFolder_(problem);
    if (problem)
        return problem;
    auto entry = MVAclEntry::newEntryForDirectory(folder);
    entry->setIdentity(std::move(identity));
    entries_.push_back(std::move(entry));
    return std::nullopt;
}

Problem AclEditor::remove(std::size_t entry) {
    if (const auto problem = known(entry))
        return problem;
    if (const auto why = whyNotRemoved(*entries_[entry]); !why.empty())
        return escaped(why.localized());
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(entry));
    return std::nullopt;
}

Problem AclEditor::setBox(std::size_t entry, std::string_view name, BoxChange change) {
    if (const auto problem = changeable(entry))
        return problem;
    auto* const node = find(*entries_[entry], name);
    if (!node)
        return say("entry %1 has no box '%2'; it has %3", entry + 1, escaped(name),
                   names(*entries_[entry]));
    return setNode(entry, *node, change);
}

Problem AclEditor::setNode(std::size_t entry, NSTreeNode& node, BoxChange change) {
    if (const auto problem = changeable(entry))
        return problem;
    if (!MVTreeNode::permissionOf(node)->settable())
        return say("the box '%1' cannot be changed as the others stand", escaped(nameOfBox(node)));
    auto state = change == BoxChange::on ? MVStateOn : MVStateOff;
    if (change == BoxChange::toggle)
        state = MVTreeNode::stateOf(node) == MVStateOn ? MVStateOff : MVStateOn;
    MVTreeNode::setStateOf(node, state);
    const auto* const execution = executionBox(*entries_[entry]);
    const bool executes = execution && MVTreeNode::stateOf(*execution) == MVStateOn;
    if (execution == &node || !executes)
        setExecutionChosen(entries_[entry], executes);
    return std::nullopt;
}

bool AclEditor::isExecutionChosen(const std::shared_ptr<MVAclEntry>& entry) const {
    return std::any_of(executing_.begin(), executing_.end(),
                       [&](const auto& other) { return other.lock() == entry; });
}

void AclEditor::setExecutionChosen(const std::shared_ptr<MVAclEntry>& entry, bool chosen) {
    std::erase_if(executing_, [&](const auto& other) {
        const auto held = other.lock();
        return !held || held == entry;
    });
    if (chosen)
        executing_.push_back(entry);
}

Problem AclEditor::choosePermissions(std::size_t entry, std::string_view name) {
    if (const auto problem = changeable(entry))
        return problem;
    static constexpr std::array<std::pair<std::string_view, MVAclPermissionGroup>, 5> codes{
        {{"all", MVAclGroupAll},
         {"read-write", MVAclGroupReadWrite},
         {"read", MVAclGroupRead},
         {"write", MVAclGroupWrite},
         {"none", MVAclGroupNone}}};
    const auto& offered = entries_[entry]->permissionGroups();
    std::string choice;
    for (const auto& [text, code] : codes) {
        if (std::find(offered.begin(), offered.end(), code) == offered.end())
            continue;
        if (text == name)
            return choosePermissions(entry, static_cast<std::int64_t>(code));
        choice += (choice.empty() ? "" : ", ") + std::string(text);
    }
    return say("'%1' is no choice for entry %2; it is one of %3", escaped(name), entry + 1, choice);
}

Problem AclEditor::choosePermissions(std::size_t entry, std::int64_t code) {
    if (const auto problem = changeable(entry))
        return problem;
    entries_[entry]->setPermissionGroup(code);
    setExecutionChosen(entries_[entry], false);
    return std::nullopt;
}

Problem AclEditor::setTag(std::size_t entry, std::int32_t tag) {
    if (const auto problem = changeable(entry))
        return problem;
    entries_[entry]->setTag(tag);
    return std::nullopt;
}

Problem AclEditor::setWho(std::size_t entry, std::string_view who) {
    if (const auto problem = changeable(entry))
        return problem;
    Problem problem;
    auto identity = identityWritten(who, problem);
    if (problem)
        return problem;
    entries_[entry]->setIdentity(std::move(identity));
    return std::nullopt;
}

Problem AclEditor::setInherited(std::size_t entry, bool inherited) {
    if (const auto problem = known(entry))
        return problem;
    entries_[entry]->setInherited(inherited);
    return std::nullopt;
}

Problem AclEditor::unwritable() const {
    for (std::size_t i = 0; i != entries_.size(); ++i) {
        if (!entries_[i]->uuid() && !entries_[i]->identity())
            return say(
                "entry %1 is for a user who is not known, and would apply to everyone; say "
                "whom it is for",
                i + 1);
    }
    return std::nullopt;
}

}  // namespace morvane
