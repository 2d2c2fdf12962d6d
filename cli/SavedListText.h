// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ListText.h"

/// Compares lists that were written as text with those of the items now.
namespace morvane {

/// Makes the entries of the list, as if they were read from the item that it describes. `item`,
/// which tells what the item is now, supplies what the list does not tell.
EntryList entriesOfSavedList(const ListText& list, MVAclOrigin::Values item, Problem& problem);

/// The place of the item at `path` below the one at `top`, which itself has the place "". Returns
/// nothing for an item elsewhere. getfacl writes paths without the "/" in front.
std::optional<std::string> placeBelow(std::string_view top, std::string_view path);

}  // namespace morvane
