// SPDX-License-Identifier: MIT
#include "PosixListText.h"

#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <algorithm>
#include <utility>
#include <variant>

namespace morvane {

namespace {

/// The number of a user or group that is written as a name or a number; `kept` if this system does
/// not know the name.
std::optional<std::uint32_t> idOf(std::string_view name, bool isGroup,
                                  std::optional<std::uint32_t> kept, Problem& problem) {
    Problem unknown;
    const auto identity =
        identityWritten((isGroup ? "group:" : "user:") + std::string(name), unknown);
    if (!identity) {
        if (!kept)
            problem = std::move(unknown);
        return kept;
    }
    const auto who = posixIdentityOfUUID(identity->uniqueIdentifier());
    if (const auto* user = std::get_if<CBPosixUser>(&*who))
        return user->uid;
    return std::get<CBPosixGroup>(*who).gid;
}

/// Reads rights: "rwX", "r-x" or a digit.
bool takeRights(std::string_view text, TextEntry& entry) {
    constexpr int octal = 8;
    if (const auto digit = numberIn<unsigned>(text, octal); digit && *digit <= PosixEverything) {
        entry.rights = static_cast<PosixRights>(*digit);
        return true;
    }
    for (const char letter : text) {
        switch (letter) {
            case 'r':
                entry.rights = entry.rights | PosixRead;
                break;
            case 'w':
                entry.rights = entry.rights | PosixWrite;
                break;
            case 'x':
                entry.rights = entry.rights | PosixExecute;
                break;
            case 'X':
                entry.executesWhereExecuted = true;
                break;
            case '-':
                break;
            default:
                return false;
        }
    }
    return true;
}

bool isOneOf(std::string_view word, std::string_view whole, std::string_view letter) {
    return word == whole || word == letter;
}

/// Sets whom the entry is for, by its first fields: "u" and "bob", "g" and "", or "m".
bool takeWho(std::string_view tag, std::string_view name, std::optional<std::uint32_t> number,
             TextEntry& entry, Problem& problem) {
    using Who = TextEntry::Who;
    const bool isGroup = isOneOf(tag, "group", "g");
    if (isGroup || isOneOf(tag, "user", "u")) {
        entry.who = isGroup ? Who::owningGroup : Who::owner;
        if (name.empty())
            return true;
        entry.who = isGroup ? Who::group : Who::user;
        const auto id = idOf(name, isGroup, number, problem);
        entry.id = id.value_or(0);
        return true;
    }
    const bool isMask = isOneOf(tag, "mask", "m");
    entry.who = isMask ? Who::mask : Who::others;
    return (isMask || isOneOf(tag, "other", "o")) && name.empty();
}

std::string linesOfList(const PosixList& list, const std::string& prefix) {
    std::string text;
    const auto add = [&](const char* tag, const std::string& name, PosixRights rights,
                         const std::string& comment = {}) {
        text += prefix + tag + ':' + name + ':' + lettersOfRights(rights) + comment + '\n';
    };
    const auto effective = [&](PosixRights rights) {
        return list.effective(rights) == rights
                   ? std::string()
                   : "\t#effective:" + lettersOfRights(list.effective(rights));
    };
    const auto addNamed = [&](const char* tag, const PosixNamedRights& entry, bool isGroup) {
        add(tag, nameOfNumber(entry.id, isGroup).value_or(std::to_string(entry.id)), entry.rights,
            numberComment(entry.id, isGroup) + effective(entry.rights));
    };
    add("user", "", list.owner);
    for (const auto& user : list.users)
        addNamed("user", user, false);
    add("group", "", list.owningGroup, effective(list.owningGroup));
    for (const auto& group : list.groups)
        addNamed("group", group, true);
    if (list.mask)
        add("mask", "", *list.mask);
    add("other", "", list.others);
    return text;
}

}  // namespace

bool isExecuted(const PosixList& list) {
    const auto executes = [](PosixRights rights) {
        return (rights & PosixExecute) != PosixNothing;
    };
    const auto namedExecutes = [&](const PosixNamedRights& named) {
        return executes(list.counting(named.rights));
    };
    return executes(list.owner | list.effective(list.owningGroup) | list.others) ||
           std::any_of(list.users.begin(), list.users.end(), namedExecutes) ||
           std::any_of(list.groups.begin(), list.groups.end(), namedExecutes);
}

PosixRights rightsFor(const TextEntry& entry, bool isExecuted) {
    return entry.executesWhereExecuted && isExecuted ? entry.rights | PosixExecute : entry.rights;
}

TextEntry textEntry(std::string_view text, bool hasRights, UnknownNames unknown, Problem& problem) {
    TextEntry entry;
    const auto hash = text.find('#');
    std::optional<std::uint32_t> number;
    if (hash != text.npos && unknown == UnknownNames::haveNumbers)
        number = numberToldBy(text.substr(hash));
    auto parts = split(trimmed(text.substr(0, hash)), ':');
    if (isOneOf(parts.front(), "default", "d")) {
        entry.isDefault = true;
        parts.erase(parts.begin());
    }
    const std::size_t needed = hasRights ? 3 : 2;
    // "o:r" and "m:rx" have no name between.
    if (hasRights && parts.size() == 2)
        parts.insert(parts.begin() + 1, std::string_view());
    if (!hasRights && parts.size() == 1)
        parts.emplace_back();
    bool isEntry = parts.size() == needed && takeWho(parts[0], parts[1], number, entry, problem);
    if (isEntry && hasRights)
        isEntry = takeRights(parts[2], entry) && !parts[2].empty();
    if (!isEntry && !problem)
        problem = hasRights
                      ? say("'%1' is no entry of a list; write it as in u:alice:rw, g:staff:r, "
                            "o::r or d:u:alice:rwX",
                            escaped(trimmed(text)))
                      : say("'%1' names no entry of a list; write it as in u:alice, g:staff or "
                            "d:u:alice",
                            escaped(trimmed(text)));
    return entry;
}
std::vector<TextEntry> textEntries(std::string_view text, bool hasRights, Problem& problem) {
    std::vector<TextEntry> entries;
    for (const auto part : split(text, ',')) {
        entries.push_back(textEntry(part, hasRights, UnknownNames::areRefused, problem));
        if (problem)
            return {};
    }
    return entries;
}

void give(PosixList& to, const TextEntry& entry, PosixRights rights) {
    using Who = TextEntry::Who;
    const auto giveNamed = [&](std::vector<PosixNamedRights>& named) {
        const auto place =
            std::lower_bound(named.begin(), named.end(), PosixNamedRights{entry.id, {}});
        if (place != named.end() && place->id == entry.id)
            place->rights = rights;
        else
            named.insert(place, {entry.id, rights});
    };
    switch (entry.who) {
        case Who::owner:
            to.owner = rights;
            break;
        case Who::owningGroup:
            to.owningGroup = rights;
            break;
        case Who::others:
            to.others = rights;
            break;
        case Who::mask:
            to.mask = rights;
            break;
        case Who::user:
            giveNamed(to.users);
            break;
        case Who::group:
            giveNamed(to.groups);
            break;
    }
}

std::optional<PosixAcl> posixAclOfText(const std::vector<TextEntry>& entries,
                                       const MVAclOrigin::Values& item, Problem& problem) {
    using Who = TextEntry::Who;
    PosixAcl acl{item.owner, item.group, item.isDirectory, {}, {}};
    acl.hasLists = item.storage != MVAclStorage::mode;
    std::uint32_t base = 0;
    const bool isExecuted =
        item.isDirectory || std::any_of(entries.begin(), entries.end(), [](const TextEntry& entry) {
            return !entry.isDefault && entry.who != Who::mask &&
                   (entry.rights & PosixExecute) != PosixNothing;
        });
    for (const auto& entry : entries) {
        const auto rights = rightsFor(entry, isExecuted);
        if (entry.isDefault && !item.isDirectory) {
            problem = say("only a folder has entries for new items inside");
            return std::nullopt;
        }
        auto& to = !entry.isDefault ? acl.access
                   : acl.defaults   ? *acl.defaults
                                    : acl.defaults.emplace();
        give(to, entry, rights);
        if (entry.who == Who::owner || entry.who == Who::owningGroup || entry.who == Who::others)
            base |= 1U << (static_cast<unsigned>(entry.who) + (entry.isDefault ? 8U : 0U));
    }
    constexpr std::uint32_t whole = 1U << static_cast<unsigned>(Who::owner) |
                                    1U << static_cast<unsigned>(Who::owningGroup) |
                                    1U << static_cast<unsigned>(Who::others);
    const auto isWhole = [&](unsigned shift) { return (base >> shift & whole) == whole; };
    if (!isWhole(0) || (acl.defaults && !isWhole(8))) {
        problem =
            say("the list lacks an entry of the owner (user::), the owning group (group::) or "
                "others (other::)");
        return std::nullopt;
    }
    for (auto* to : {&acl.access, acl.defaults ? &*acl.defaults : nullptr}) {
        if (to && !to->mask)
            *to = withMask(std::move(*to), nullptr);
    }
    return acl;
}

std::string linesOfPosix(const PosixAcl& acl) {
    return linesOfList(acl.access, "") +
           (acl.defaults ? linesOfList(*acl.defaults, "default:") : "");
}

}  // namespace morvane
