// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EntryText.h"
#include "FileFacts.h"
#include "JsonDocument.h"

/// What one list says otherwise than another.
namespace morvane {

/// A list, and what is known of its item.
struct ComparedList {
    std::string path;
    EntryList entries;
    /// Empty for a saved list, and for an item that this program cannot see.
    std::optional<FileFacts> facts = {};
};

struct ListDifference {
    /// Something of the item, such as its owner, in words.
    struct Fact {
        std::string name;
        std::string before;
        std::string after;
    };
    /// One of the two is null if the entry has come or gone.
    struct Entry {
        std::shared_ptr<MVAclEntry> before;
        std::shared_ptr<MVAclEntry> after;
    };
    std::vector<Fact> facts;
    std::vector<Entry> entries;
    /// The entries are the same in another order, which decides what an NFSv4 list means.
    bool isReordered = false;
    /// The rights of the modes, where they differ.
    std::optional<std::pair<std::string, std::string>> modes = {};

    bool isEmpty() const { return facts.empty() && entries.empty() && !isReordered; }
};

/// The letters of what an entry gives or, in an NFSv4 list, denies.
std::string givenLetters(const MVAclEntry& entry);

/// Entries belong together if they are for the same, and apply to the same items: the owner to the
/// owner, whoever that is.
ListDifference differenceOf(const ComparedList& before, const ComparedList& after);

/// A line for each: "~ " has changed, "+ " has come, "- " has gone.
std::string differenceAsLines(const ListDifference& difference, const std::string& indent,
                              const Style& style);

Json jsonOfDifference(const ListDifference& difference);

}  // namespace morvane
