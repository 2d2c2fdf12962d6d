// SPDX-License-Identifier: MIT
#include "AclEditor.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <variant>

namespace morvane {

namespace {

constexpr auto nobodysNumber = std::numeric_limits<std::uint32_t>::max();

bool sameName(std::string_view a, std::string_view b) {
    return inSmallLetters(a) == inSmallLetters(b);
}

std::string nameOfBox(const NSTreeNode& node) {
    return boxText(node).localized();
}

/// Whether a box is meant by `name`: in the language of the user, or in English.
bool isNamed(const NSTreeNode& node, std::string_view name) {
    const auto own = nameOfBox(node);
    return sameName(own, name) || sameName(keyOfName(own), name);
}

/// The names that can be written where one was not known: "'Read', 'Read Data', ...".
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

std::optional<std::uint32_t> number(std::string_view text) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

}  // namespace

Problem unknownName(std::string_view name, bool isGroup) {
    return isGroup ? say("there is no group '%1'; check the spelling, or write its number",
                         escaped(name))
                   : say("there is no user '%1'; check the spelling, or write its number",
                         escaped(name));
}

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
        problem = unknownName(name, !isUser);
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

AclEditor::AclEditor(EntryList entries, FolderQuestion isFolder)
    : model_(MVAclEditor::init({*NSURL::URLWithString("about:blank"), entries})),
      list_(ItemList::asRead(entries)),
      isFolder_(std::move(isFolder)) {
    sortCanonically(entries);
    model_->showEntries(std::move(entries));
}

void AclEditor::goOn(const EntryList& now, const EntryList& read, EntryList shown) {
    list_ = ItemList::asRead(now);
    model_->setReadEntries(read);
    model_->showEntries(std::move(shown));
}

std::vector<std::string> AclEditor::letters() const {
    auto asked = entries();
    for (auto& entry : asked) {
        if (list_ && model_->isExecutionChosen(*entry))
            entry = list_->askingToExecute(entry);
    }
    const bool readExecutes = !list_ || list_->readExecutes(asked);
    const auto storage = list_ ? list_->item().storage : storageOf(asked);
    std::vector<std::string> letters;
    for (const auto& entry : asked) {
        auto& own = letters.emplace_back(lettersOfEntry(*entry, storage));
        if (!readExecutes && list_->askingToExecute(entry) != entry)
            own.back() = '-';
    }
    return letters;
}

Problem AclEditor::known(std::size_t entry) const {
    if (entry < entries().size())
        return std::nullopt;
    return entries().empty()
               ? say("the list has no entries")
               : say("there is no entry %1; the list has %2", entry + 1, entries().size());
}

Problem AclEditor::changeable(std::size_t entry) const {
    if (const auto problem = known(entry))
        return problem;
    if (entries()[entry]->inherited())
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
    auto shown = entries();
    shown.push_back(std::move(entry));
    model_->showEntries(std::move(shown));
    return std::nullopt;
}

Problem AclEditor::remove(std::size_t entry) {
    if (const auto problem = known(entry))
        return problem;
    const auto removed = entries()[entry];
    if (!model_->remove(removed))
        return escaped(whyNotRemoved(*removed).localized());
    return std::nullopt;
}

Problem AclEditor::setBox(std::size_t entry, std::string_view name, BoxChange change) {
    if (const auto problem = changeable(entry))
        return problem;
    auto* const node = find(*entries()[entry], name);
    if (!node)
        return say("entry %1 has no box '%2'; it has %3", entry + 1, escaped(name),
                   names(*entries()[entry]));
    return setNode(entry, *node, change);
}

Problem AclEditor::setNode(std::size_t entry, NSTreeNode& node, BoxChange change) {
    if (const auto problem = changeable(entry))
        return problem;
    const bool isOn = MVTreeNode::stateOf(node) == MVStateOn;
    const bool on = change == BoxChange::toggle ? !isOn : change == BoxChange::on;
    if (!model_->setBox(entries()[entry], node, on))
        return say("the box '%1' cannot be changed as the others stand", escaped(nameOfBox(node)));
    return std::nullopt;
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
    const auto& offered = entries()[entry]->permissionGroups();
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
    model_->setPermissionGroup(entries()[entry], code);
    return std::nullopt;
}

Problem AclEditor::setTag(std::size_t entry, std::int32_t tag) {
    if (const auto problem = changeable(entry))
        return problem;
    entries()[entry]->setTag(tag);
    return std::nullopt;
}

Problem AclEditor::setWho(std::size_t entry, std::string_view who) {
    if (const auto problem = changeable(entry))
        return problem;
    Problem problem;
    auto identity = identityWritten(who, problem);
    if (problem)
        return problem;
    entries()[entry]->setIdentity(std::move(identity));
    return std::nullopt;
}

Problem AclEditor::setInherited(std::size_t entry, bool inherited) {
    if (const auto problem = known(entry))
        return problem;
    entries()[entry]->setInherited(inherited);
    return std::nullopt;
}

Problem AclEditor::unwritable() const {
    for (std::size_t i = 0; i != entries().size(); ++i) {
        if (!entries()[i]->uuid() && !entries()[i]->identity())
            return say(
                "entry %1 is for a user who is not known, and would apply to everyone; say "
                "whom it is for",
                i + 1);
    }
    return std::nullopt;
}

}  // namespace morvane
