// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "AclEditor.h"

/// The commands of `morvane acl PATH --edit SCRIPT`, one after the other:
///
///     add user:alice; permissions read; entry 1; off "Write Data"; deny
///
/// They stand apart by semicolons or line breaks; words that hold blanks stand in quotes; a #
/// begins a comment. Numbers are those of the list as it was shown: entries that were added count
/// on from there, and none moves up when another is removed.
namespace morvane {

/// What `morvane help edit` prints.
std::string editScriptHelp();

/// Runs the commands up to the first that cannot be done, and tells which one and why.
Problem runEditScript(std::string_view script, AclEditor& editor);

}  // namespace morvane
