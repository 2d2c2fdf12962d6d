// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// How phrases are translated. Defined by the room of what the host supplies.
namespace morvane {

/// Returns the translation of a key in the language of this process; without one, the key. `table`
/// is empty for a phrase.
std::string translated(std::string_view table, std::string_view key);
/// Returns the same for a count of things, of which `one` and `many` are the keys in English.
std::string translated(std::string_view one, std::string_view many, std::uint64_t count);

}  // namespace morvane
