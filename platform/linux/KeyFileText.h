// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <string>
#include <string_view>

/// The text of a key file, of which people and other programs own their part:
///
///     [Defaults]
///     useBase2MathForSizes=true
///
/// Lines that are not understood, comments, other groups and other keys mean nothing here and are
/// kept byte by byte. Of a key that stands twice the last one counts.
namespace morvane::key_file {

inline constexpr std::string_view group = "[Defaults]";

DefaultsStore::Values parse(std::string_view text);
/// `text` with `key` set to `value`; the group is added at the end if there is none.
std::string withValue(std::string_view text, std::string_view key, std::string_view value);

}  // namespace morvane::key_file
