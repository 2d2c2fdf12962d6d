// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// Numbers as text, by a pattern such as "#,##0.##", with the separators and digits of the user's
/// locale.
///
///     auto formatter = NSNumberFormatter::numberFormatterWithFormat("#,##0.##");
///     formatter->stringFromNumber(123456789);   // "123,456,789" or "123.456.789"
///
/// The locale is the one that the environment names (LC_ALL, LC_NUMERIC, LANG) when the formatter
/// is made, whatever setlocale() was given. A formatter does not change; any thread may use it.
namespace morvane {

class MORVANE_EXPORT NSNumberFormatter {
  public:
    using Maker = std::function<std::unique_ptr<NSNumberFormatter>(std::string_view pattern)>;

    virtual ~NSNumberFormatter();
    /// The exact integer, in UTF-8.
    virtual std::string stringFromNumber(std::int64_t number) const = 0;

    /// Throws NSException "NSInvalidArgumentException" for a malformed pattern.
    static std::unique_ptr<NSNumberFormatter> numberFormatterWithFormat(std::string_view pattern);
    /// For tests, before any other thread runs: what makes the formatters from now on; empty puts
    /// the system's back.
    static void setMaker(Maker maker);
};

/// ICU. Defined by the Linux platform.
NSNumberFormatter::Maker systemNumberFormatters();

}  // namespace morvane
