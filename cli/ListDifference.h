// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EntryText.h"
#include "FileFacts.h"
#include "JsonDocument.h"

/// The differences between two lists.
namespace morvane {

/// A list, and what is known of its item.
struct ComparedList {
    std::string path;
    EntryList entries;
    /// Empty for a saved list, and for an item that this program cannot see.
    std::optional<FileFacts> facts = {};
};

struct ListDifference {
    /// What differs of the item itself, such as its owner, in words.
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
    /// Whether the entries are the same in another order, which matters in an NFSv4 list.
    bool isReordered = false;
    /// The rights of the modes, where they differ.
    std::optional<std::pair<std::string, std::string>> modes = {};

    bool isEmpty() const { return facts.empty() && entries.empty() && !isReordered; }
};

/// The letters of what an entry gives or, in an NFSv4 list, denies.
std::string givenLetters(const MVAclEntry& entry);

/// Compares two lists. Entries correspond if they have the same subject and apply to the same
/// items; the entries of the owners correspond, whoever the owners are.
ListDifference differenceOf(const ComparedList& before, const ComparedList& after);

/// Returns a line for each difference: "~ " marks an entry that has changed, "+ " a new one, "- " a
/// removed one.
std::string differenceAsLines(const ListDifference& difference, const std::string& indent,
                              const Style& style);

Json jsonOfDifference(const ListDifference& difference);

}  // namespace morvane
