// SPDX-License-Identifier: MIT
#include "Nfs4ListText.h"

#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace morvane {

namespace {

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

}  // namespace

bool isNfs4Line(std::string_view line) {
    return line.size() > 1 && line[1] == ':' && std::strchr("ADUL", line[0]) != nullptr;
}

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
    // The number of a name that this system does not know may follow the entry.
    if (unknown == UnknownNames::haveNumbers && hash != line.npos && !entry.who.ends_with('@')) {
        const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
        const auto name = entry.who.substr(0, entry.who.find('@'));
        const auto record =
            isGroup ? systemUsers().groupWithName(name) : systemUsers().userWithName(name);
        const auto number = numberToldBy(line.substr(hash));
        if (!record && number)
            entry.who = std::to_string(*number);
    }
    return entry;
}

std::string linesOfNfs4(const Nfs4Acl& acl) {
    std::string text;
    for (const auto& entry : acl.entries) {
        const bool isGroup = (entry.flags & Nfs4IsGroup) != 0;
        auto who = entry.who;
        std::string number;
        if (const auto id = idOfNfs4Who(entry.who)) {
            number = numberComment(*id, isGroup);
            who = nameOfNumber(*id, isGroup).value_or(who);
        }
        text += std::string(entry.type == Nfs4Deny ? "D:" : "A:") +
                lettersOf(entry.flags, nfs4Flags) + ':' + who + ':' +
                lettersOf(entry.mask, nfs4Letters) + number + '\n';
    }
    return text;
}

Nfs4Names namesOfThisSystem() {
    return {[](const std::string& who, bool isGroup) -> std::optional<CBPosixIdentity> {
                const auto name = who.substr(0, who.find('@'));
                const auto record =
                    isGroup ? systemUsers().groupWithName(name) : systemUsers().userWithName(name);
                if (!record)
                    return std::nullopt;
                return isGroup ? CBPosixIdentity{CBPosixGroup{record->id}}
                               : CBPosixIdentity{CBPosixUser{record->id}};
            },
            [](const CBPosixIdentity&) { return std::optional<std::string>(); }};
}

}  // namespace morvane
