// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Outcome.h"

/// What is printed for programs: one object for each run, which docs/morvane.schema.json describes.
namespace morvane {

/// Keys in the order in which they are put in.
using Json = nlohmann::ordered_json;

/// The version of the output. It is raised with each change that may break a program which reads
/// it: a key that is removed or changes its meaning. A new key does not raise it.
inline constexpr int jsonVersion = 1;

/// The object for a run of `command` that ends with `outcome`, with `members` between what all
/// commands have. What is not UTF-8 is replaced.
std::string jsonDocument(std::string_view command, Json members, const Outcome& outcome);

/// The same for a run that has no members of its own.
std::string jsonDocument(std::string_view command, const Outcome& outcome);

/// A line of --json-lines: what happens in a run of `command`, which `event` names.
std::string jsonLine(std::string_view command, std::string_view event, Json members);

/// The last of the lines, which tells how the run has ended.
std::string lastJsonLine(std::string_view command, Json members, const Outcome& outcome);

/// The same for a run that has no members of its own.
std::string lastJsonLine(std::string_view command, const Outcome& outcome);

/// The keys of an item's path: as text, as its bytes in base64, and as URL.
Json jsonOfPath(std::string_view path);

/// An item, of several, that could not be done, and the reason in words for people.
Json jsonOfFailedItem(std::string_view path, std::string_view why);

/// A user's or a group's number, and the name, which is null if it has none.
Json jsonOfOwner(std::uint32_t id, bool isGroup);

/// An error of one item among several; null for 0.
Json jsonOfCode(std::int64_t posixCode);

}  // namespace morvane
