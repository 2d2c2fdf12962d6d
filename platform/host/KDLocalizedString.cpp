// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/Translation.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace morvane {
namespace {

struct State {
    std::shared_mutex mutex;
    KDLocalizedString::Lookup lookup = systemLocalizedStrings();
    bool isHosts = false;
    /// Counts the look-ups that were set.
    std::atomic<std::uint64_t> generation = 1;
};

State& state() {
    static auto* const s = new State;  // other threads may look up while the process ends
    return *s;
}

/// What was looked up lately: every decoded check box asks for its name again, and who asks may be
/// anyone. So there are few texts, and each is short. No list of each thread's own: its end would
/// have to be noted, which ends the process when there is no memory for it.
struct RecentText {
    std::mutex mutex;
    /// 0: none.
    std::uint64_t generation = 0;
    std::string table;
    std::string key;
    std::string text;
};

/// The place of `key`, whose text may be there.
RecentText& recentText(std::string_view key, std::string_view table) {
    static auto& texts = *new std::array<RecentText, KDLocalizedString::mostRemembered>;
    std::uint64_t word = 0;
    std::memcpy(&word, key.data(), std::min(key.size(), sizeof word));
    word ^= key.size() << 32 ^ static_cast<std::uint64_t>(key.back()) << 40 ^ table.size();
    static_assert(KDLocalizedString::mostRemembered == 256);
    return texts[word * 0x9E3779B97F4A7C15u >> 56];
}

}  // namespace

std::string KDLocalizedString::localize(std::string_view key, std::string_view table) {
    if (key.empty())
        return {};
    auto& s = state();
    auto& recent = recentText(key, table);
    const auto generation = s.generation.load(std::memory_order_acquire);
    {
        const std::lock_guard lock(recent.mutex);
        if (recent.generation == generation && recent.key == key && recent.table == table)
            return recent.text;
    }
    Lookup lookup;
    {
        const std::shared_lock lock(s.mutex);
        lookup = s.lookup;
    }
    std::string ownKey(key);
    std::string ownTable(table);
    // Under no lock: the host's look-up may come back here.
    auto result = lookup(ownKey, ownTable);
    if (std::max({key.size(), table.size(), result.size()}) <= longestRemembered) {
        auto text = result;
        const std::lock_guard lock(recent.mutex);
        // One that was replaced meanwhile has told nothing that anybody will find here.
        recent.generation = generation;
        recent.table.swap(ownTable);
        recent.key.swap(ownKey);
        recent.text.swap(text);
    }
    return result;
}

std::string KDLocalizedString::localize(std::string_view one, std::string_view many,
                                        std::uint64_t count) {
    const bool isHosts = [] {
        const std::shared_lock lock(state().mutex);
        return state().isHosts;
    }();
    return isHosts ? localize(count == 1 ? one : many, {})
                   : systemLocalizedCount(std::string(one), std::string(many), count);
}

void KDLocalizedString::setLookup(Lookup lookup) {
    auto& s = state();
    const std::unique_lock lock(s.mutex);
    s.isHosts = lookup != nullptr;
    s.lookup = lookup ? std::move(lookup) : systemLocalizedStrings();
    s.generation.fetch_add(1, std::memory_order_release);
}

std::string translated(std::string_view table, std::string_view key) {
    return KDLocalizedString::localize(key, table);
}

std::string translated(std::string_view one, std::string_view many, std::uint64_t count) {
    return KDLocalizedString::localize(one, many, count);
}

}  // namespace morvane
