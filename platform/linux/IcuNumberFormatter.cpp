// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>

#include <cstdlib>
#include <utility>

namespace morvane {
namespace {

icu::Locale userLocale() {
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        const char* const name = std::getenv(variable);
        if (name && *name != '\0')
            return icu::Locale::createCanonical(name);
    }
    return icu::Locale("en_US_POSIX");
}

class IcuNumberFormatter final : public NSNumberFormatter {
  public:
    explicit IcuNumberFormatter(std::unique_ptr<icu::DecimalFormat> format)
        : format_(std::move(format)) {}

    std::string stringFromNumber(std::int64_t number) const override {
        icu::UnicodeString text;
        format_->format(number, text);
        std::string result;
        text.toUTF8String(result);
        return result;
    }

  private:
    std::unique_ptr<icu::DecimalFormat> format_;
};

std::unique_ptr<NSNumberFormatter> makeFormatter(std::string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    auto symbols = std::make_unique<icu::DecimalFormatSymbols>(userLocale(), status);
    auto format = std::make_unique<icu::DecimalFormat>(
        icu::UnicodeString::fromUTF8(
            icu::StringPiece(pattern.data(), static_cast<std::int32_t>(pattern.size()))),
        symbols.release(), status);
    if (U_FAILURE(status)) {
        throw NSException(NSInvalidArgumentException,
                          "The number pattern \"" + std::string(pattern) + "\" cannot be used.");
    }
    return std::make_unique<IcuNumberFormatter>(std::move(format));
}

}  // namespace

NSNumberFormatter::Maker systemNumberFormatters() {
    return makeFormatter;
}

}  // namespace morvane
