// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace morvane {

/// The texts that people see, looked up by their English keys in a table.
///
///     show(KDLocalizedString::localize("Applies To", "ACL"));
///
/// Without a host's own look-up, GNU gettext is asked for the library's own catalogue, in the
/// language that the program has chosen by setlocale(); the table is the context of the text there.
/// A text without a translation is its own key. What was looked up lately is remembered, within
/// limits: a name may come from anyone. Safe from any thread.
class MORVANE_EXPORT KDLocalizedString {
  public:
    using Lookup = std::function<std::string(const std::string& key, const std::string& table)>;

    /// The text for `key`; for an empty key the empty text. The table of a sentence (Phrase) is
    /// empty.
    static std::string localize(std::string_view key, std::string_view table);
    /// The sentence for `count` things: `one` and `many` are its keys in English. A host's own
    /// look-up is asked for that one of them which English has for the count.
    static std::string localize(std::string_view one, std::string_view many, std::uint64_t count);

    /// The host's own look-up, from now on; empty puts gettext back. What was looked up before is
    /// forgotten.
    static void setLookup(Lookup lookup);

    /// How many texts are remembered, and how many bytes a key or text has at most that is
    /// remembered.
    static constexpr std::size_t mostRemembered = 256;
    static constexpr std::size_t longestRemembered = 128;
};

/// The library's own catalogue. Defined by the Linux platform.
KDLocalizedString::Lookup systemLocalizedStrings();
/// A sentence of it for `count` things.
std::string systemLocalizedCount(const std::string& one, const std::string& many,
                                 std::uint64_t count);

}  // namespace morvane
