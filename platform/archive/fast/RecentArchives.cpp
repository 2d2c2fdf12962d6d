// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/RecentArchives.h>

#include <algorithm>
#include <cstring>
#include <utility>

/// For the row archive-decode-entry of the bench.
namespace morvane {
namespace {

constexpr std::uint64_t metAgain = 1;
/// Objects of a few values are less deep.
constexpr std::uint32_t mostDepth = 8;

}  // namespace

/// The record of a place while somebody uses it.
class RecentArchives::Taken {
  public:
    explicit Taken(Place& place)
        : place_(place), record_(place.record.exchange(nullptr, std::memory_order_acquire)) {}
    ~Taken() {
        // Another one may have been put there meanwhile.
        if (record_)
            delete place_.record.exchange(record_, std::memory_order_acq_rel);
    }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    const Record* get() const { return record_; }

  private:
    Place& place_;
    Record* const record_;
};

RecentArchives::~RecentArchives() {
    for (auto& place : places_)
        delete place.record.load();
}

std::uint64_t RecentArchives::hashOf(NSDataView archive) const {
    constexpr std::uint64_t factor = 0x9e3779b97f4a7c15;
    constexpr std::size_t word = sizeof(std::uint64_t);
    std::uint64_t hash = archive.size() * factor;
    for (auto at = std::min(frontSize_, archive.size()); archive.size() - at >= word; at += word) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, archive.data() + at, word);
        hash = (hash ^ bytes) * factor;
        hash ^= hash >> 32;
    }
    // Neither that of no archive nor marked.
    return (hash | 2) & ~metAgain;
}

/// One of two places that are the archive's: that where it was met, or one where none was, or the
/// first.
RecentArchives::Place* RecentArchives::placeOf(std::uint64_t hash) {
    auto& first = places_[hash >> 8 & 0xff];
    auto& second = places_[hash >> 16 & 0xff];
    static_assert(mostArchives == 0x100);
    const auto isAt = [](const Place& place, std::uint64_t wanted) {
        return (place.hash.load(std::memory_order_relaxed) & ~metAgain) == wanted;
    };
    if (isAt(first, hash))
        return &first;
    return isAt(second, hash) || (isAt(second, 0) && !isAt(first, 0)) ? &second : &first;
}

std::shared_ptr<NSObject> RecentArchives::recall(NSDataView archive, NSKeyedUnarchiver& coder,
                                                 NSDecodingBudget& budget) {
    const auto hash = hashOf(archive);
    auto& place = *placeOf(hash);
    if (place.hash.load(std::memory_order_relaxed) != (hash | metAgain))
        return nullptr;
    const Taken taken(place);
    const auto* const record = taken.get();
    if (!record || record->bytes > budget.bytes || record->objects > budget.objects ||
        mostDepth > budget.depth ||
        !std::equal(archive.begin(), archive.end(), record->archive.begin(), record->archive.end()))
        return nullptr;
    auto left = budget;
    left.bytes -= record->bytes;
    left.objects -= record->objects;
    auto object = coding_.make(coder, record->values);
    budget = left;
    return object;
}

bool RecentArchives::isMetAgain(NSDataView archive) noexcept {
    const auto hash = hashOf(archive);
    auto& known = placeOf(hash)->hash;
    const auto before = known.load(std::memory_order_relaxed);
    // What is marked is remembered, or cannot be.
    if (before != (hash | metAgain))
        known.store(before == hash ? hash | metAgain : hash, std::memory_order_relaxed);
    return before == hash;
}

void RecentArchives::remember(std::unique_ptr<Record> record) noexcept {
    auto& place = *placeOf(hashOf(record->archive));
    delete place.record.exchange(record.release(), std::memory_order_acq_rel);
}

}  // namespace morvane
