// SPDX-License-Identifier: MIT
#include "ListDifference.h"

#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/PosixAcl.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <algorithm>
#include <compare>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "EntryJson.h"

namespace morvane {

namespace {

const MVAclOrigin* toldOrigin(const EntryList& entries) {
    const auto told = std::find_if(entries.begin(), entries.end(),
                                   [](const auto& entry) { return entry->origin() != nullptr; });
    return told == entries.end() ? nullptr : (*told)->origin().get();
}

/// The key by which an entry is found in the other list.
struct EntryKey {
    std::string who;
    std::int64_t appliesTo = 0;
    /// In a POSIX list allowing and denying are two sides of one entry.
    std::int32_t tag = 0;
    auto operator<=>(const EntryKey&) const = default;
};

std::string whoKey(const MVAclEntry& entry, MVAclStorage storage) {
    if (!entry.isAcl())
        return "class " + std::to_string(static_cast<int>(subjectOfEntry(entry)));
    if (!entry.uuid())
        return "everyone";
    const auto& origin = entry.origin();
    // In an NFSv4 list the entry that names the owner is one like others.
    if (storage == MVAclStorage::nfs4 && origin) {
        if (*entry.uuid() == uuidOfPosixIdentity(CBPosixUser{origin->values().owner}))
            return "owner";
        if (*entry.uuid() == uuidOfPosixIdentity(CBPosixGroup{origin->values().group}))
            return "owning group";
    }
    return entry.uuid()->UUIDString();
}

/// An entry with its key and everything that is shown of it.
struct KeyedEntry {
    EntryKey key;
    std::shared_ptr<MVAclEntry> entry;
    std::string seen;
};

MVAclStorage storageOf(const MVAclEntry& entry) {
    return entry.origin() ? entry.origin()->values().storage : MVAclStorage::posix;
}

/// Whether the entry is one of a POSIX list that gives nothing, which is shown as a denial of
/// everything.
bool givesNothing(const MVAclEntry& entry) {
    return storageOf(entry) != MVAclStorage::nfs4 && entry.tag() == MVAclTagDeny;
}

Phrase permissionsOf(const MVAclEntry& entry) {
    return givesNothing(entry) ? choiceText(MVAclGroupNone) : permissionsText(entry);
}

std::vector<KeyedEntry> keyedEntries(const EntryList& entries) {
    const auto storage = storageOf(entries);
    std::vector<KeyedEntry> keyed;
    std::map<EntryKey, std::size_t> places;
    for (const auto& entry : entries) {
        const bool isNfs4 = storage == MVAclStorage::nfs4;
        EntryKey key{whoKey(*entry, storage), appliesToCode(*entry), isNfs4 ? entry->tag() : 0};
        auto seen = givenLetters(*entry) + ' ' + permissionsOf(*entry).english() +
                    (entry->inherited() ? " inherited" : "");
        // What a POSIX list denies follows from what it allows, unless that is nothing.
        const auto [place, isNew] = places.emplace(key, keyed.size());
        if (!isNfs4 && !isNew) {
            auto& same = keyed[place->second];
            if (same.entry->tag() == MVAclTagDeny)
                same = {std::move(key), entry, std::move(seen)};
            continue;
        }
        keyed.push_back({std::move(key), entry, std::move(seen)});
    }
    return keyed;
}

void compareFacts(const ComparedList& before, const ComparedList& after, ListDifference& to) {
    const auto add = [&](std::string name, std::string was, std::string is) {
        if (was != is)
            to.facts.push_back({std::move(name), std::move(was), std::move(is)});
    };
    const auto* const was = toldOrigin(before.entries);
    const auto* const is = toldOrigin(after.entries);
    if (was && is) {
        const auto shown = [](const Phrase& text) { return text.localized(); };
        const auto& old = was->values();
        const auto& now = is->values();
        add(say("Kind"), shown(kindText(old)), shown(kindText(now)));
        add(say("List"), shown(storageText(old.storage)), shown(storageText(now.storage)));
        add(say("Owner"), shown(ownerText(old)), shown(ownerText(now)));
        add(say("Group"), shown(owningGroupText(old)), shown(owningGroupText(now)));
        // TRANSLATORS: In place of the letters of a mask.
        const auto mask = [](const std::string& letters) {
            return letters.empty() ? say("holds nothing back") : letters;
        };
        const auto oldMasks = masksHoldingBack(was);
        const auto masks = masksHoldingBack(is);
        add(say("Mask"), mask(oldMasks.list), mask(masks.list));
        add(say("Mask for new items"), mask(oldMasks.defaults), mask(masks.defaults));
    }
    if (before.facts && after.facts) {
        constexpr std::size_t letters = 10;  // without the mark of a list
        const auto old = before.facts->modeText().substr(0, letters);
        const auto now = after.facts->modeText().substr(0, letters);
        add(say("Mode"), old, now);
        if (old != now)
            to.modes.emplace(old, now);
    }
}

std::string change(const std::string& before, const std::string& after) {
    return before == after ? before : before + " -> " + after;
}

std::string partsOf(const ListDifference::Entry& entry) {
    const auto& any = entry.before ? *entry.before : *entry.after;
    const auto part = [&](auto text) {
        const auto of = [&](const auto& one) { return text(*one); };
        return entry.before && entry.after ? change(of(entry.before), of(entry.after)) : text(any);
    };
    std::string line = escaped(whoText(any).localized());
    const auto add = [&](const std::string& text) {
        if (!text.empty())
            line += "  " + escaped(text);
    };
    // Entries of a POSIX list only give.
    if (storageOf(any) == MVAclStorage::nfs4)
        add(ruleText(any.tag()).localized());
    add(part([](const MVAclEntry& one) { return givenLetters(one); }));
    add(part([](const MVAclEntry& one) { return permissionsOf(one).localized(); }));
    add(appliesToText(any).localized());
    const bool isMarkChanged =
        entry.before && entry.after && entry.before->inherited() != entry.after->inherited();
    if (isMarkChanged || any.inherited())
        add(part([](const MVAclEntry& one) {
            return one.inherited() ? say("inherited") : say("not inherited");
        }));
    return line;
}

}  // namespace

std::string givenLetters(const MVAclEntry& entry) {
    return givesNothing(entry) ? lettersOfRights(PosixNothing)
                               : lettersOfEntry(entry, storageOf(entry));
}

ListDifference differenceOf(const ComparedList& before, const ComparedList& after) {
    ListDifference difference;
    compareFacts(before, after, difference);
    const auto old = keyedEntries(before.entries);
    const auto now = keyedEntries(after.entries);
    std::map<EntryKey, std::vector<std::size_t>> placesOfKeys;
    for (std::size_t i = 0; i != now.size(); ++i)
        placesOfKeys[now[i].key].push_back(i);
    std::vector<bool> isTaken(now.size());
    std::vector<std::size_t> places;
    // The same entry first, as an NFSv4 list may have several for the same.
    const auto placeOf = [&](const KeyedEntry& entry) {
        std::optional<std::size_t> like;
        for (const auto i : placesOfKeys[entry.key]) {
            if (isTaken[i])
                continue;
            if (now[i].seen == entry.seen)
                return std::optional(i);
            if (!like)
                like = i;
        }
        return like;
    };
    for (const auto& entry : old) {
        const auto place = placeOf(entry);
        if (!place) {
            difference.entries.push_back({entry.entry, nullptr});
            continue;
        }
        isTaken[*place] = true;
        places.push_back(*place);
        if (now[*place].seen != entry.seen)
            difference.entries.push_back({entry.entry, now[*place].entry});
    }
    for (std::size_t i = 0; i != now.size(); ++i) {
        if (!isTaken[i])
            difference.entries.push_back({nullptr, now[i].entry});
    }
    difference.isReordered = storageOf(after.entries) == MVAclStorage::nfs4 &&
                             !std::is_sorted(places.begin(), places.end());
    return difference;
}

std::string differenceAsLines(const ListDifference& difference, const std::string& indent,
                              const Style& style) {
    std::string lines;
    for (const auto& fact : difference.facts)
        lines += indent + "~ " +
                 // TRANSLATORS: "Owner: user alice -> user bob"
                 escaped(say("%1: %2", fact.name, change(fact.before, fact.after))) + '\n';
    for (const auto& entry : difference.entries) {
        const auto line = partsOf(entry);
        lines += indent +
                 (!entry.before  ? style.good("+ " + line)
                  : !entry.after ? style.bad("- " + line)
                                 : "~ " + line) +
                 '\n';
    }
    if (difference.isReordered)
        lines += indent + "~ " + say("The entries stand in another order, which decides.") + '\n';
    return lines;
}

Json jsonOfDifference(const ListDifference& difference) {
    const auto entryOf = [](const std::shared_ptr<MVAclEntry>& entry) {
        return entry ? jsonOfEntries({entry}).front() : Json(nullptr);
    };
    auto entries = Json::array();
    for (const auto& entry : difference.entries)
        entries.push_back({{"before", entryOf(entry.before)}, {"after", entryOf(entry.after)}});
    const auto& modes = difference.modes;
    return {
        {"modes", modes ? Json{{"before", modes->first}, {"after", modes->second}} : Json(nullptr)},
        {"entries", std::move(entries)},
        {"reordered", difference.isReordered}};
}

}  // namespace morvane
