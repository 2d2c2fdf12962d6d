// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <atomic>
#include <bit>
#include <charconv>
#include <iterator>
#include <mutex>
#include <utility>

namespace morvane {
namespace {

// Plain process-wide values by design; relaxed, as a text may mix two bases while they change.
std::atomic<std::int64_t> kilobyte{1000};
std::atomic<std::int64_t> megabyte{1000000};
std::atomic<std::int64_t> gigabyte{1000000000};
std::atomic<std::int64_t> terabyte{1000000000000};

/// value * 10 rounded to the nearest integer, ties to even, on the exact value, as "%.1f" rounds.
/// `value` is from 0.1 to 2^48.
std::uint64_t roundedTenths(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    const auto exponent = static_cast<int>(bits >> 52) - 1023;
    const int shift = 52 - exponent;
    const auto mantissa = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
    const auto tenths = mantissa * 10;
    const auto half = std::uint64_t{1} << (shift - 1);
    const auto rest = tenths & (2 * half - 1);
    const auto below = tenths >> shift;
    return below + (rest > half || (rest == half && below % 2 == 1) ? 1 : 0);
}

}  // namespace

constexpr NSKeyPath MVFileSizeInfo::useBase2MathForSizesKeyPath{"useBase2MathForSizes"};
constexpr NSKeyPath MVFileSizeInfo::byteUnitsKeyPath{"byteUnits"};
constexpr NSKeyPath MVFileSizeInfo::kilobyteUnitsKeyPath{"kilobyteUnits"};
constexpr NSKeyPath MVFileSizeInfo::megabyteUnitsKeyPath{"megabyteUnits"};
constexpr NSKeyPath MVFileSizeInfo::gigabyteUnitsKeyPath{"gigabyteUnits"};
constexpr NSKeyPath MVFileSizeInfo::terabyteUnitsKeyPath{"terabyteUnits"};

struct MVFileSizeInfo::Shared {
    // Recursive: an observer of the first notification may ask for the formatter.
    std::recursive_mutex creation;
    std::shared_ptr<MVFileSizeInfo> instance;
    std::atomic<bool> published = false;
};

MVFileSizeInfo::Shared& MVFileSizeInfo::shared() {
    static auto* const shared = new Shared;  // outlives every static user
    return *shared;
}

const NSClass& MVFileSizeInfo::classObject() {
    static const NSClass object{"MVFileSizeInfo", &NSObject::classObject(), nullptr};
    return object;
}

const std::shared_ptr<MVFileSizeInfo>& MVFileSizeInfo::sharedFileSizeInfo() {
    auto& shared = MVFileSizeInfo::shared();
    return shared.published.load(std::memory_order_acquire) ? shared.instance : init();
}

const std::shared_ptr<MVFileSizeInfo>& MVFileSizeInfo::init() {
    auto& shared = MVFileSizeInfo::shared();
    const std::lock_guard lock(shared.creation);
    if (shared.instance)
        return shared.instance;
    shared.instance = std::make_shared<MVFileSizeInfo>(Private());
    try {
        shared.instance->setUp();
    } catch (...) {
        shared.instance.reset();
        throw;
    }
    shared.published.store(true, std::memory_order_release);
    return shared.instance;
}

void MVFileSizeInfo::setUp() {
    updateConstants();
    NSUserDefaults::standardUserDefaults().addObserver(this, useBase2MathForSizesKeyPath);
    observing_ = true;
}

MVFileSizeInfo::~MVFileSizeInfo() {
    if (observing_)
        NSUserDefaults::standardUserDefaults().removeObserver(this, useBase2MathForSizesKeyPath);
}

void MVFileSizeInfo::observeValueForKeyPath(const NSKeyPath&, NSObject&) {
    updateConstants();
}

void MVFileSizeInfo::updateConstants() {
    const std::int64_t unit =
        NSUserDefaults::standardUserDefaults().boolForKey(useBase2MathForSizesKeyPath.name) ? 1024
                                                                                            : 1000;
    kilobyte.store(unit, std::memory_order_relaxed);
    megabyte.store(unit * unit, std::memory_order_relaxed);
    gigabyte.store(unit * unit * unit, std::memory_order_relaxed);
    terabyte.store(unit * unit * unit * unit, std::memory_order_relaxed);
    NSNotificationCenter::defaultCenter().postNotificationName(MVFileSizeBaseChanged, this);
}

void MVFileSizeInfo::setByteUnits(std::string units) {
    byteUnits_ = std::move(units);
    didChangeValueForKey(byteUnitsKeyPath);
}

void MVFileSizeInfo::setKilobyteUnits(std::string units) {
    kilobyteUnits_ = std::move(units);
    didChangeValueForKey(kilobyteUnitsKeyPath);
}

void MVFileSizeInfo::setMegabyteUnits(std::string units) {
    megabyteUnits_ = std::move(units);
    didChangeValueForKey(megabyteUnitsKeyPath);
}

void MVFileSizeInfo::setGigabyteUnits(std::string units) {
    gigabyteUnits_ = std::move(units);
    didChangeValueForKey(gigabyteUnitsKeyPath);
}

void MVFileSizeInfo::setTerabyteUnits(std::string units) {
    terabyteUnits_ = std::move(units);
    didChangeValueForKey(terabyteUnitsKeyPath);
}

std::string MVFileSizeInfo::stringWithFileSize(std::int64_t size, bool allowBytes) const {
    if (size < 0)
        return "--";
    const auto k = kilobyte.load(std::memory_order_relaxed);
    const auto m = megabyte.load(std::memory_order_relaxed);
    const auto g = gigabyte.load(std::memory_order_relaxed);
    const auto t = terabyte.load(std::memory_order_relaxed);

    char digits[24];
    char* end;
    const std::string* units = &byteUnits();
    if (allowBytes && size < k) {
        end = std::to_chars(digits, std::end(digits), size).ptr;
    } else {
        const auto divisor = size < m ? k : size < g ? m : size < t ? g : t;
        units = size < m   ? &kilobyteUnits()
                : size < g ? &megabyteUnits()
                : size < t ? &gigabyteUnits()
                           : &terabyteUnits();
        const double value = static_cast<double>(size) / static_cast<double>(divisor);
        const auto whole = size / divisor;
        const double fraction = value - static_cast<double>(whole);
        if (static_cast<std::uint64_t>(fraction * 10.0) != 0) {
            const auto tenths = roundedTenths(value);
            end = std::to_chars(digits, std::end(digits), tenths / 10).ptr;
            if (const auto last = tenths % 10; last != 0) {
                *end++ = '.';
                *end++ = static_cast<char>('0' + last);
            }
        } else {
            // A fraction under a tenth never rounds up.
            end = std::to_chars(digits, std::end(digits), whole).ptr;
        }
    }
    const auto length = static_cast<std::size_t>(end - digits);
    std::string text;
    text.reserve(length + 1 + units->size());
    text.append(digits, length).append(1, ' ').append(*units);
    return text;
}

const std::string& MVFileSizeInfo::byteUnits() const {
    return byteUnits_;
}

const std::string& MVFileSizeInfo::kilobyteUnits() const {
    return kilobyteUnits_;
}

const std::string& MVFileSizeInfo::megabyteUnits() const {
    return megabyteUnits_;
}

const std::string& MVFileSizeInfo::gigabyteUnits() const {
    return gigabyteUnits_;
}

const std::string& MVFileSizeInfo::terabyteUnits() const {
    return terabyteUnits_;
}

}  // namespace morvane
