// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "EntryText.h"
#include "JsonDocument.h"

/// Access-control entries for programs, the same in every language.
namespace morvane {

/// An array of objects.
Json jsonOfEntries(const EntryList& entries);
/// Returns the text of `json`, in which bytes that are not UTF-8 are replaced.
std::string entriesAsJson(const EntryList& entries);

/// The boxes of a tree.
Json jsonOfNodes(const std::vector<std::shared_ptr<MVTreeNode>>& nodes);

/// Whom an entry is for.
Json jsonOfIdentity(const CBIdentity& identity);

/// The item at `path` and what the entries that were read from it tell of it; null is what they do
/// not tell.
Json jsonOfListedItem(std::string_view path, const EntryList& entries);

}  // namespace morvane
