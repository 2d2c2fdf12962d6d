// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>

#include <string>
#include <string_view>

namespace morvane::keyed {

using Kind = PropertyListReader::Kind;
using Value = PropertyListReader::Value;

[[noreturn, gnu::cold, gnu::noinline]] inline void fail(std::string_view key,
                                                        std::string_view what) {
    throw NSArchiveFailure(key, std::string(what));
}

/// Damage below the keyed layer, told in terms of the key that was being read.
template <class Read>
auto reading(std::string_view key, Read&& read) {
    try {
        return read();
    } catch (const PropertyListDamage& damage) {
        fail(key, damage.what());
    }
}

}  // namespace morvane::keyed
