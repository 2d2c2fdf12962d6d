// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ListText.h"

/// Lists that were written as text, beside the items that they are of.
namespace morvane {

/// The entries of the list with what it tells of its item, as if they were read from there. What it
/// does not tell is as `item` says, which is what the item is now.
EntryList entriesOfSavedList(const ListText& list, MVAclOrigin::Values item, Problem& problem);

/// Where the item at `path` is below the one at `top`: "" for that itself. Empty for another item.
/// getfacl writes paths without the "/" in front.
std::optional<std::string> placeBelow(std::string_view top, std::string_view path);

}  // namespace morvane
