#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>

#include <utility>

namespace morvane {
namespace {
NSNumberFormatter::Maker& currentMaker() {
    static auto* const maker = new NSNumberFormatter::Maker(systemNumberFormatters());
    return *maker;
}
}  // namespace

NSNumberFormatter::~NSNumberFormatter() = default;

std::unique_ptr<NSNumberFormatter> NSNumberFormatter::numberFormatterWithFormat(
    std::string_view pattern) {
    return currentMaker()(pattern);
}

void NSNumberFormatter::setMaker(Maker maker) {
    currentMaker() = maker ? std::move(maker) : systemNumberFormatters();
}

}  // namespace morvane
