// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <MorvaneOperation/platform/foundation/SystemPart.h>

#include <utility>

namespace morvane {
namespace {
SystemPart<NSNumberFormatter::Maker>& numberFormatters() {
    static auto& part = *new SystemPart<NSNumberFormatter::Maker>(
        [] { return std::make_shared<NSNumberFormatter::Maker>(systemNumberFormatters()); });
    return part;
}
}  // namespace

NSNumberFormatter::~NSNumberFormatter() = default;

std::unique_ptr<NSNumberFormatter> NSNumberFormatter::numberFormatterWithFormat(
    std::string_view pattern) {
    return numberFormatters().current()(pattern);
}

void NSNumberFormatter::setMaker(Maker maker) {
    numberFormatters().replace(maker ? std::make_shared<Maker>(std::move(maker)) : nullptr);
}

}  // namespace morvane
