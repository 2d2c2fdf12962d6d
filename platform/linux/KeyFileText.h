// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <string>
#include <string_view>

/// Reads and edits the text of a key file, parts of which belong to people and other programs:
///
///     [Defaults]
///     useBase2MathForSizes=true
///
/// Lines that are not understood, comments, other groups and other keys are ignored here and kept
/// byte by byte. If a key occurs twice, the last one counts.
namespace morvane::key_file {

inline constexpr std::string_view group = "[Defaults]";

DefaultsStore::Values parse(std::string_view text);
/// Returns `text` with `key` set to `value`; the group is added at the end if it is missing.
std::string withValue(std::string_view text, std::string_view key, std::string_view value);

}  // namespace morvane::key_file
