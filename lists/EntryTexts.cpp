// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/IdentityText.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <optional>
#include <variant>

#include "PosixStatements.h"

namespace morvane {

namespace {

std::optional<CBPosixIdentity> posixIdentityOf(const MVAclEntry& entry) {
    return entry.uuid() ? posixIdentityOfUUID(*entry.uuid()) : CBPosixIdentity{CBEveryone{}};
}

/// What a custom group is made of: "Custom (Read, part of Write)".
Phrase customText(const MVAclEntry& entry) {
    std::vector<Phrase> parts;
    for (std::size_t i = 0; i != std::min(permissionGroups, entry.permissions().size()); ++i) {
        const auto& node = *entry.permissions()[i];
        const auto* group = MVTreeNode::permissionOf(node);
        if (!group || group->state() == MVStateOff)
            continue;
        const auto name = boxText(node);
        // TRANSLATORS: Some of the boxes of a group are on: "part of Read".
        parts.push_back(group->state() == MVStateMixed ? phrase("part of %1", name) : name);
    }
    return parts.empty() ? phrase("Custom")
                         : phrase("Custom (%1)", Phrase::list(translatable(", "), parts));
}

/// The bits of the boxes that are on in the first three groups.
std::uint32_t boxesOnIn(const MVAclEntry& entry) {
    std::uint32_t on = 0;
    std::vector<EntryLoss> ignored;
    for (std::size_t i = 0; i != std::min(permissionGroups, entry.permissions().size()); ++i)
        on |= boxesOn(*entry.permissions()[i], 0, entry, ignored);
    return on;
}

bool hasAppliesTo(const MVAclEntry& entry) {
    return entry.isAcl() && entry.permissions().size() > permissionGroups;
}

std::string lettersOfPosix(const MVAclEntry& entry) {
    const auto& groups = entry.permissions();
    std::string letters = "rwx";
    if (!entry.isAcl()) {
        for (std::size_t i = 0; i != letters.size(); ++i) {
            if (i >= groups.size() || MVTreeNode::stateOf(*groups[i]) != MVStateOn)
                letters[i] = '-';
        }
        return letters;
    }
    const auto on = boxesOnIn(entry);
    const bool isFolder = hasAppliesTo(entry);
    const bool denies = entry.tag() == MVAclTagDeny;
    const auto unless = [&](std::uint32_t box, char& letter) {
        const auto all = posixBoxesWith(box, isFolder);
        // A right is denied with any box of it.
        if (denies ? (on & all) == 0 : (on & all) != all)
            letter = '-';
    };
    unless(ACL_READ_DATA, letters[0]);
    unless(ACL_WRITE_DATA, letters[1]);
    unless(ACL_SEARCH, letters[2]);
    return letters;
}

std::string lettersOfNfs4(const MVAclEntry& entry) {
    static constexpr std::pair<std::uint32_t, char> letterOfBox[] = {
        {ACL_READ_DATA, 'r'},           {ACL_WRITE_DATA, 'w'},       {ACL_APPEND_DATA, 'a'},
        {ACL_DELETE_CHILD, 'D'},        {ACL_DELETE, 'd'},           {ACL_SEARCH, 'x'},
        {ACL_READ_ATTRIBUTES, 't'},     {ACL_WRITE_ATTRIBUTES, 'T'}, {ACL_READ_EXTATTRIBUTES, 'n'},
        {ACL_WRITE_EXTATTRIBUTES, 'N'}, {ACL_READ_SECURITY, 'c'},    {ACL_WRITE_SECURITY, 'C'},
        {ACL_CHANGE_OWNER, 'o'}};
    const auto on = boxesOnIn(entry);
    std::string letters;
    for (const auto& [box, letter] : letterOfBox) {
        if ((on & box) != 0)
            letters += letter;
    }
    return letters;
}

Phrase identityOfNumber(const CBPosixIdentity& who) {
    const auto known = CBIdentity::identityWithUniqueIdentifier(
        uuidOfPosixIdentity(who), CBIdentityAuthority::defaultIdentityAuthority());
    if (known)
        return identityText(*known);
    const auto* user = std::get_if<CBPosixUser>(&who);
    return user ? "uid " + std::to_string(user->uid)
                : "gid " + std::to_string(std::get<CBPosixGroup>(who).gid);
}

/// What a folder's entry applies to while the boxes of these values are on, as the entry itself
/// says it.
Phrase appliesToTextOf(std::uint32_t on) {
    const auto name = [](const char* key) { return Phrase::inTable("ACL", key); };
    std::vector<Phrase> parts;
    if ((on & ACL_ENTRY_ONLY_INHERIT) == 0)
        parts.push_back(name("Not this item"));
    for (const acl_perm_entry* flag = acl_flags; flag->name; ++flag) {
        if ((on & flag->perm) != 0)
            parts.push_back(name(flag->name));
    }
    return Phrase::list(translatable(", "), parts);
}

/// Each combination in which the boxes of "Applies To" can stand.
constexpr std::uint32_t applicabilities[] = {
    ACL_ENTRY_ONLY_INHERIT,
    ACL_ENTRY_ONLY_INHERIT | ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT |
        ACL_ENTRY_LIMIT_INHERIT,
    ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT,
    ACL_ENTRY_ONLY_INHERIT | ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT,
    ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT,
    ACL_ENTRY_ONLY_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT,
    ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT,
    ACL_ENTRY_ONLY_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT,
    ACL_ENTRY_DIRECTORY_INHERIT,
    ACL_ENTRY_ONLY_INHERIT | ACL_ENTRY_FILE_INHERIT,
    ACL_ENTRY_FILE_INHERIT,
};

}  // namespace

std::string shownText(const Phrase& phrase) {
    return validUtf8(phrase.localized());
}

std::string shownName(std::string_view bytes) {
    return validUtf8(bytes);
}

EntrySubject subjectOfEntry(const MVAclEntry& entry) {
    const auto who = posixIdentityOf(entry);
    if (!who)
        return EntrySubject::nobody;
    if (const auto* creator = std::get_if<CBCreator>(&*who))
        return creator->isGroup ? EntrySubject::creatorGroup : EntrySubject::creator;
    if (std::holds_alternative<CBEveryone>(*who))
        return EntrySubject::everyone;
    if (std::holds_alternative<CBPosixGroup>(*who))
        return entry.isAcl() ? EntrySubject::group : EntrySubject::owningGroup;
    return entry.isAcl() ? EntrySubject::user : EntrySubject::owner;
}

Phrase whoText(const MVAclEntry& entry) {
    const auto text = identityText(entry);
    switch (subjectOfEntry(entry)) {
        case EntrySubject::owner:
            return phrase("%1 (owner)", text);
        case EntrySubject::owningGroup:
            return phrase("%1 (owning group)", text);
        default:
            return text;
    }
}

Phrase ruleText(std::int32_t tag) {
    // TRANSLATORS: An entry's rule: it allows what is on.
    if (tag == MVAclTagAllow)
        return phrase("Allow");
    return tag == MVAclTagDeny ? phrase("Deny") : phrase("Tag %1", tag);
}

Phrase choiceText(std::int64_t code) {
    const auto choice = [](const char* key) { return Phrase::inTable("Permissions", key); };
    switch (code) {
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
        case MVAclGroupCustom:
            return phrase("Custom");
        default:
            return {};
    }
}

Phrase permissionsText(const MVAclEntry& entry) {
    const auto code = entry.permissionGroup();
    return code >= MVAclGroupAll && code < MVAclGroupCustom ? choiceText(code) : customText(entry);
}

std::string lettersOfEntry(const MVAclEntry& entry, MVAclStorage storage) {
    return storage == MVAclStorage::nfs4 ? lettersOfNfs4(entry) : lettersOfPosix(entry);
}

Phrase appliesToText(const MVAclEntry& entry) {
    return entry.applicableTo();
}

Phrase inheritedText(const MVAclEntry& entry) {
    return entry.inherited() ? phrase("inherited") : Phrase();
}

Phrase boxText(const NSTreeNode& node) {
    const auto* permission = MVTreeNode::permissionOf(node);
    // The names of a converted entry are keys still.
    return permission ? Phrase::inTable("ACL", permission->name()) : Phrase();
}

Phrase kindText(const MVAclOrigin::Values& item) {
    return item.isDirectory ? phrase("folder") : phrase("file");
}

Phrase storageText(MVAclStorage storage) {
    switch (storage) {
        case MVAclStorage::posix:
            return phrase("POSIX list");
        case MVAclStorage::mode:
            return phrase("mode (the file system keeps no lists)");
        case MVAclStorage::nfs4:
            return phrase("NFSv4 list");
    }
    return {};
}

Phrase ownerText(const MVAclOrigin::Values& item) {
    return identityOfNumber(CBPosixUser{item.owner});
}

Phrase owningGroupText(const MVAclOrigin::Values& item) {
    return identityOfNumber(CBPosixGroup{item.group});
}

Phrase whyNotChanged(const MVAclEntry& entry) {
    return entry.inherited() ? phrase("it is inherited; make it the item's own first") : Phrase();
}

Phrase whyNotRemoved(const MVAclEntry& entry) {
    return entry.isAcl()
               ? Phrase()
               : phrase("the entry of %1 is what every item has; take its permissions away instead",
                        identityName(entry));
}

Phrase whyNotBox(const MVAclEntry& entry, const NSTreeNode& box, const ItemList* list) {
    if (auto inherited = whyNotChanged(entry); !inherited.empty())
        return inherited;
    const auto* permission = MVTreeNode::permissionOf(box);
    if (permission && !permission->settable())
        return phrase("the other boxes decide it");
    return list ? list->whyNotBox(entry, box) : Phrase();
}

std::vector<EntryChoice> permissionChoices(const MVAclEntry& entry, const ItemList* list) {
    const auto fixed = whyNotChanged(entry);
    std::vector<EntryChoice> choices;
    for (const auto code : entry.permissionGroups()) {
        if (code == MVAclGroupCustom && entry.permissionGroup() != MVAclGroupCustom)
            continue;
        auto& choice = choices.emplace_back(EntryChoice{code, choiceText(code), fixed});
        if (code == MVAclGroupCustom)
            choice.name = permissionsText(entry);
        if (!fixed.empty())
            continue;
        if (list)
            choice.whyNot = list->whyNotChoice(entry, code);
        else if (code == MVAclGroupCustom)
            choice.whyNot = phrase("it is made of single boxes");
    }
    return choices;
}

std::vector<EntryChoice> ruleChoices(const MVAclEntry& entry, const ItemList* list) {
    const auto fixed = whyNotChanged(entry);
    std::vector<EntryChoice> choices;
    for (const auto tag : entry.tags()) {
        auto& choice = choices.emplace_back(EntryChoice{tag, ruleText(tag), fixed});
        if (!fixed.empty() || tag != MVAclTagDeny)
            continue;
        if (!entry.isAcl())
            choice.whyNot = phrase("an entry of three rights only allows");
        else if (list)
            choice.whyNot = list->whyNotDenied(entry);
    }
    return choices;
}

std::vector<EntryChoice> appliesToChoices(const MVAclEntry& entry, const ItemList* list) {
    const auto now = static_cast<std::uint32_t>(appliesToCode(entry));
    if (!hasAppliesTo(entry))
        return {{now, appliesToText(entry), {}}};
    const auto fixed = whyNotChanged(entry);
    std::vector<EntryChoice> choices;
    bool isNowAmongThem = false;
    for (const auto on : applicabilities) {
        isNowAmongThem |= on == now;
        choices.push_back(
            {on, appliesToTextOf(on), fixed.empty() && list ? list->whyNotAppliesTo(on) : fixed});
    }
    if (!isNowAmongThem)
        choices.push_back({now, appliesToText(entry), phrase("it applies to nothing")});
    return choices;
}

std::int64_t appliesToCode(const MVAclEntry& entry) {
    if (!hasAppliesTo(entry))
        return ACL_ENTRY_ONLY_INHERIT;
    std::vector<EntryLoss> ignored;
    return boxesOn(*entry.permissions()[permissionGroups], 0, entry, ignored);
}

bool setAppliesTo(MVAclEntry& entry, std::int64_t code) {
    if (entry.inherited() || !hasAppliesTo(entry))
        return appliesToCode(entry) == code;
    const auto& boxes = entry.permissions()[permissionGroups]->childNodes();
    const auto isWanted = [&](const NSTreeNode& box) {
        const auto* permission = MVTreeNode::permissionOf(box);
        return permission && (permission->permission() & code) != 0;
    };
    // What needs another box stands behind it, and something has to be on at any time.
    for (const auto& box : boxes) {
        if (isWanted(*box) && MVTreeNode::stateOf(*box) != MVStateOn)
            MVTreeNode::setStateOf(*box, MVStateOn);
    }
    for (auto box = boxes.rbegin(); box != boxes.rend(); ++box) {
        if (!isWanted(**box) && MVTreeNode::stateOf(**box) != MVStateOff)
            MVTreeNode::setStateOf(**box, MVStateOff);
    }
    return appliesToCode(entry) == code;
}

}  // namespace morvane
