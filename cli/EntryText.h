// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Text.h"

/// Access-control entries as text.
namespace morvane {

using EntryList = std::vector<std::shared_ptr<MVAclEntry>>;

/// How the list of the entries is stored.
MVAclStorage storageOf(const EntryList& entries);

/// Sorts by descending canonical score; entries of the same score stay in their order.
void sortCanonically(EntryList& entries);

/// Whether the entry's identity is a group, also if it has no name.
bool identityIsGroup(const MVAclEntry& entry);

/// The masks of a list that hold back rights of its entries, in letters: "r--". A text is empty
/// where there is no mask, or it holds nothing back.
struct HoldingMasks {
    std::string list;
    /// The mask of the list that new items in the folder start with.
    std::string defaults;
};
/// Returns none if `origin`, which may be null, does not tell them.
HoldingMasks masksHoldingBack(const MVAclOrigin* origin);

/// Describes the item: in one text its kind, how its list is stored, its owner and owning group,
/// and in a further one each mask that holds rights back. Returns none if the entries do not tell.
std::vector<std::string> factsOfItem(const EntryList& entries);

/// The same in whole lines.
std::string itemAsLines(const EntryList& entries, const Style& style);

/// Returns a line for each entry under a line of headings, with the letters of the item's list;
/// with `tree`, each box follows its entry. Everything that comes from outside is escaped.
std::string entriesAsTable(const EntryList& entries, bool tree, const Style& style);

/// One entry in one line, without a table: "user alice  Allow  r--  Read  This item".
std::string entryAsLine(const MVAclEntry& entry, std::string_view letters);
/// Returns the key, which is English, of the name of a box or a group in the language of the user.
/// Any other text is returned as it is.
std::string keyOfName(std::string_view name);
/// A box before its name: "[x] Read Data"; "[-]" is mixed.
std::string boxAsText(const NSTreeNode& node);

/// The boxes of a tree, one in each line; the groups begin at the left edge.
std::string nodesAsTree(const std::vector<std::shared_ptr<MVTreeNode>>& nodes, const Style& style);

}  // namespace morvane
