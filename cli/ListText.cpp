// SPDX-License-Identifier: MIT
#include "ListText.h"

#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <utility>

namespace morvane {

namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0;;) {
        const auto end = text.find(separator, begin);
        parts.push_back(trimmed(text.substr(begin, end - begin)));
        if (end == text.npos)
            return parts;
        begin = end + 1;
    }
}

template <class Number>
std::optional<Number> numberIn(std::string_view text, int base = 10) {
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::string unquoted(std::string_view text) {
    constexpr std::size_t digits = 3;
    constexpr int octal = 8;
    std::string path;
    while (!text.empty()) {
        if (text.starts_with("\\\\")) {
            path += '\\';
            text.remove_prefix(2);
            continue;
        }
        const auto value = text.front() == '\\' && text.size() > digits
                               ? numberIn<unsigned>(text.substr(1, digits), octal)
                               : std::nullopt;
        path += value ? static_cast<char>(*value) : text.front();
        text.remove_prefix(value ? digits + 1 : 1);
    }
    return path;
}

UserDatabase& database() {
    return CBIdentityAuthority::defaultIdentityAuthority().database();
}

std::optional<std::string> nameOfNumber(std::uint32_t id, bool isGroup) {
    const auto record = isGroup ? database().groupWithId(id) : database().userWithId(id);
    // What would end the name, or the line, is told by number.
    if (!record || record->name.find_first_of(":#,\\ \t\n") != std::string::npos)
        return std::nullopt;
    return record->name;
}

/// The number of a user or group that is written as name or number, or, if this system does not
/// know the name, `kept`.
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

/// "rwX", "r-x" or a digit.
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

/// Takes who an entry is for: "u", "bob" or "g", "" or "m".
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

TextEntry textEntry(std::string_view text, bool hasRights, UnknownNames unknown, Problem& problem) {
    TextEntry entry;
    const auto hash = text.find('#');
    std::optional<std::uint32_t> number;
    if (hash != text.npos && unknown == UnknownNames::haveNumbers) {
        const auto comment = text.substr(hash + 1);
        if (comment.starts_with("uid=") || comment.starts_with("gid="))
            number = numberIn<std::uint32_t>(trimmed(comment.substr(4)));
    }
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

constexpr std::pair<char, std::uint32_t> nfs4Letters[] = {
    {'r', 0x1},     {'w', 0x2},     {'a', 0x4},     {'D', 0x40},    {'d', 0x10000},
    {'x', 0x20},    {'t', 0x80},    {'T', 0x100},   {'n', 0x8},     {'N', 0x10},
    {'c', 0x20000}, {'C', 0x40000}, {'o', 0x80000}, {'y', 0x100000}};
constexpr std::pair<char, std::uint32_t> nfs4Flags[] = {
    {'f', Nfs4FileInherit}, {'d', Nfs4FolderInherit}, {'n', Nfs4NoPropagate},
    {'i', Nfs4InheritOnly}, {'g', Nfs4IsGroup},       {'I', Nfs4Inherited}};

template <std::size_t count>
bool takeLetters(std::string_view letters, const std::pair<char, std::uint32_t> (&table)[count],
                 std::uint32_t& bits) {
    return std::all_of(letters.begin(), letters.end(), [&](char letter) {
        const auto row = std::find_if(std::begin(table), std::end(table),
                                      [&](const auto& known) { return known.first == letter; });
        if (row != std::end(table))
            bits |= row->second;
        return row != std::end(table);
    });
}

template <std::size_t count>
std::string lettersOf(std::uint32_t bits, const std::pair<char, std::uint32_t> (&table)[count]) {
    std::string letters;
    for (const auto& [letter, bit] : table)
        letters += (bits & bit) != 0 ? std::string(1, letter) : std::string();
    return letters;
}

bool isNfs4Line(std::string_view line) {
    return line.size() > 1 && line[1] == ':' && std::strchr("ADUL", line[0]) != nullptr;
}

/// "A:fdg:staff@example.org:rxtncy".
Nfs4Entry nfs4Entry(std::string_view line, UnknownNames unknown, Problem& problem) {
    Nfs4Entry entry;
    const auto hash = line.find('#');
    const auto parts = split(trimmed(line.substr(0, hash)), ':');
    constexpr std::size_t fields = 4;
    constexpr std::string_view types = "ADUL";
    entry.type = static_cast<std::uint32_t>(types.find(line.front()));
    if (parts.size() != fields || !takeLetters(parts[1], nfs4Flags, entry.flags) ||
        !takeLetters(parts[3], nfs4Letters, entry.mask) || parts[2].empty()) {
        problem = say("'%1' is no entry of an NFSv4 list", escaped(trimmed(line)));
        return entry;
    }
    entry.who = parts[2];
    if (entry.who == nfs4OwningGroup)
        entry.flags |= Nfs4IsGroup;
    // A name that this system does not know may have its number behind it.
    if (unknown == UnknownNames::haveNumbers && hash != line.npos &&
        line.substr(hash + 1).size() > 4 && !entry.who.ends_with('@')) {
        const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
        const auto name = entry.who.substr(0, entry.who.find('@'));
        const auto record =
            isGroup ? database().groupWithName(name) : database().userWithName(name);
        const auto number = numberIn<std::uint32_t>(trimmed(line.substr(hash + 5)));
        if (!record && number)
            entry.who = std::to_string(*number);
    }
    return entry;
}

/// Names as a list of this system's has them, whatever their domain.
Nfs4Names namesOfThisSystem() {
    return {[](const std::string& who, bool isGroup) -> std::optional<CBPosixIdentity> {
                const auto name = who.substr(0, who.find('@'));
                const auto record =
                    isGroup ? database().groupWithName(name) : database().userWithName(name);
                if (!record)
                    return std::nullopt;
                return isGroup ? CBPosixIdentity{CBPosixGroup{record->id}}
                               : CBPosixIdentity{CBPosixUser{record->id}};
            },
            [](const CBPosixIdentity&) { return std::optional<std::string>(); }};
}

std::string linesOfPosix(const PosixList& list, const std::string& prefix) {
    std::string text;
    const auto add = [&](const char* tag, const std::string& name, PosixRights rights,
                         const std::string& number) {
        text += prefix + tag + ':' + name + ':' + lettersOfRights(rights) + number + '\n';
    };
    const auto addNamed = [&](const char* tag, const PosixNamedRights& entry, bool isGroup) {
        const auto id = std::to_string(entry.id);
        add(tag, nameOfNumber(entry.id, isGroup).value_or(id), entry.rights,
            (isGroup ? "\t#gid=" : "\t#uid=") + id);
    };
    add("user", "", list.owner, "");
    for (const auto& user : list.users)
        addNamed("user", user, false);
    add("group", "", list.owningGroup, "");
    for (const auto& group : list.groups)
        addNamed("group", group, true);
    if (list.mask)
        add("mask", "", *list.mask, "");
    add("other", "", list.others, "");
    return text;
}

std::string linesOfNfs4(const Nfs4Acl& acl) {
    std::string text;
    for (const auto& entry : acl.entries) {
        const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
        auto who = entry.who;
        std::string number;
        if (const auto id = idOfNfs4Who(entry.who)) {
            number = (isGroup ? "\t#gid=" : "\t#uid=") + who;
            who = nameOfNumber(*id, isGroup).value_or(who);
        }
        text += std::string(entry.type == Nfs4Deny ? "D:" : "A:") +
                lettersOf(entry.flags, nfs4Flags) + ':' + who + ':' +
                lettersOf(entry.mask, nfs4Letters) + number + '\n';
    }
    return text;
}

}  // namespace

PosixRights rightsFor(const TextEntry& entry, bool isExecuted) {
    return entry.executesWhereExecuted && isExecuted ? entry.rights | PosixExecute : entry.rights;
}

bool isOwnersByName(const TextEntry& entry, const MVAclOrigin::Values& item) {
    return !entry.isDefault && ((entry.who == TextEntry::Who::user && entry.id == item.owner) ||
                                (entry.who == TextEntry::Who::group && entry.id == item.group));
}

std::string ownersByName(const TextEntry& entry) {
    return entry.who == TextEntry::Who::user
               ? say("the owner has no entry by name beside that of the owner; set u:: instead")
               : say("the owning group has no entry by name beside that of the owning group; set "
                     "g:: instead");
}

std::string quotedPath(std::string_view path) {
    std::string text;
    for (const char c : path) {
        if (c == '\n' || c == '\r' || c == '\\') {
            constexpr unsigned lowBits = 7;
            const auto byte = static_cast<unsigned char>(c);
            text += {'\\', static_cast<char>('0' + (byte >> 6U)),
                     static_cast<char>('0' + (byte >> 3U & lowBits)),
                     static_cast<char>('0' + (byte & lowBits))};
        } else {
            text += c;
        }
    }
    return text;
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

std::vector<ListText> parsedLists(std::string_view text, UnknownNames unknown, Problem& problem) {
    constexpr std::string_view pathHead = "# file: ";
    std::vector<ListText> lists;
    bool isOpen = false;
    std::size_t number = 0;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto whole = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        ++number;
        const auto line = trimmed(whole);
        if (line.empty()) {
            isOpen = false;
            continue;
        }
        if (!isOpen || line.starts_with("# file:")) {
            lists.emplace_back();
            isOpen = true;
        }
        auto& list = lists.back();
        const auto take = [&](std::string_view head, std::string& value) {
            if (line.starts_with(head))
                value = unquoted(trimmed(line.substr(head.size())));
        };
        if (line.front() == '#') {
            take("# file:", list.path);
            // A name may begin and end with blanks.
            if (whole.starts_with(pathHead))
                list.path = unquoted(whole.substr(
                    pathHead.size(),
                    whole.ends_with('\r') ? whole.size() - pathHead.size() - 1 : whole.npos));
            take("# owner:", list.owner);
            take("# group:", list.group);
            take("# item:", list.item);
        } else if (isNfs4Line(line)) {
            list.nfs4.push_back(nfs4Entry(line, unknown, problem));
        } else {
            list.posix.push_back(textEntry(line, true, unknown, problem));
        }
        if (!problem && !list.nfs4.empty() && !list.posix.empty())
            problem = say("entries of a POSIX list and of an NFSv4 list stand in one");
        if (problem) {
            problem = say("line %1: %2", number, *problem);
            return {};
        }
    }
    // A comment that stands alone is no list.
    std::erase_if(lists, [](const ListText& list) {
        return list.path.empty() && list.posix.empty() && list.nfs4.empty();
    });
    return lists;
}

std::string listAsText(std::string_view path, const EntryList& entries) {
    const auto list = ItemList::asRead(entries);
    if (!list)
        return {};
    const auto& item = list->item();
    const auto name = [](std::uint32_t id, bool isGroup) {
        return nameOfNumber(id, isGroup).value_or(std::to_string(id));
    };
    std::string text = "# file: " + quotedPath(path) + "\n# owner: " + name(item.owner, false) +
                       "\n# group: " + name(item.group, true) + '\n';
    if (const auto& acl = list->posixAcl()) {
        text += linesOfPosix(acl->access, "");
        if (acl->defaults)
            text += linesOfPosix(*acl->defaults, "default:");
    } else {
        text +=
            linesOfNfs4(nfs4AclOfEntries(entries, {}, {item.owner, item.group, item.isDirectory},
                                         namesOfThisSystem())
                            .acl);
    }
    return text + '\n';
}

EntryList entriesOfText(const ListText& list, const MVAclOrigin::Values& item, Problem& problem) {
    if (!list.nfs4.empty())
        return entriesOfNfs4Acl({.entries = list.nfs4}, {item.owner, item.group, item.isDirectory},
                                namesOfThisSystem());
    using Who = TextEntry::Who;
    PosixAcl acl{item.owner, item.group, item.isDirectory, {}, {}};
    acl.hasLists = item.storage != MVAclStorage::mode;
    std::uint32_t base = 0;
    const bool isExecuted =
        item.isDirectory ||
        std::any_of(list.posix.begin(), list.posix.end(), [](const TextEntry& entry) {
            return !entry.isDefault && entry.who != Who::mask &&
                   (entry.rights & PosixExecute) != PosixNothing;
        });
    for (const auto& entry : list.posix) {
        const auto rights = rightsFor(entry, isExecuted);
        if (isOwnersByName(entry, item)) {
            problem = ownersByName(entry);
            return {};
        }
        if (entry.isDefault && !item.isDirectory) {
            problem = say("only a folder has entries for new items inside");
            return {};
        }
        auto& to = !entry.isDefault ? acl.access
                   : acl.defaults   ? *acl.defaults
                                    : acl.defaults.emplace();
        const auto insert = [&](std::vector<PosixNamedRights>& named) {
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
                insert(to.users);
                break;
            case Who::group:
                insert(to.groups);
                break;
        }
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
        return {};
    }
    return entriesOfPosixAcl(acl);
}

std::string contentOfFile(const std::string& path, Problem& problem) {
    std::ostringstream content;
    std::ifstream file;
    errno = 0;
    if (path != "-")
        file.open(path, std::ios::binary);
    std::istream& from = path == "-" ? std::cin : file;
    if (from && from.peek() != std::istream::traits_type::eof())
        content << from.rdbuf();
    if ((path != "-" && !file.is_open()) || from.bad() || errno == EISDIR)
        problem = say("'%1' cannot be read: %2", escaped(path), Phrase::ofSystemError(errno));
    return std::move(content).str();
}

}  // namespace morvane
