#include <MorvaneOperation/platform/host/KDLocalizedString.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace morvane {
namespace {

struct State {
    std::shared_mutex mutex;
    KDLocalizedString::Lookup lookup = systemLocalizedStrings();
    /// Counts the look-ups that were set.
    std::atomic<std::uint64_t> generation = 1;
};

State& state() {
    static auto* const s = new State;  // other threads may look up while the process ends
    return *s;
}

struct Text {
    std::string table;
    std::string key;
    std::string text;
};

/// What this thread has looked up lately: every decoded check box asks for its name again, and who
/// asks may be anyone. So there are few texts, and each is short.
struct RecentTexts {
    std::uint64_t generation = 0;
    std::array<Text, KDLocalizedString::mostRemembered> texts;

    /// The place of `key`, whose text may be there.
    Text& at(std::string_view key, std::string_view table) {
        std::uint64_t word = 0;
        std::memcpy(&word, key.data(), std::min(key.size(), sizeof word));
        word ^= key.size() << 32 ^ static_cast<std::uint64_t>(key.back()) << 40 ^ table.size();
        static_assert(KDLocalizedString::mostRemembered == 256);
        return texts[word * 0x9E3779B97F4A7C15u >> 56];
    }
};

}  // namespace

std::string KDLocalizedString::localize(std::string_view key, std::string_view table) {
    if (key.empty())
        return {};
    auto& s = state();
    thread_local std::unique_ptr<RecentTexts> recentTexts;
    const auto generation = s.generation.load(std::memory_order_acquire);
    if (!recentTexts || recentTexts->generation != generation) {
        recentTexts = std::make_unique<RecentTexts>();
        recentTexts->generation = generation;
    }
    const Text& recent = recentTexts->at(key, table);
    if (recent.key == key && recent.table == table)
        return recent.text;
    Lookup lookup;
    {
        const std::shared_lock lock(s.mutex);
        lookup = s.lookup;
    }
    // Not under the lock: the host's look-up may come back here.
    Text text{std::string(table), std::string(key), {}};
    text.text = lookup(text.key, text.table);
    auto result = text.text;
    // What a look-up tells that was replaced meanwhile is not remembered.
    if (recentTexts->generation == generation &&
        std::max({key.size(), table.size(), result.size()}) <= longestRemembered) {
        recentTexts->at(key, table) = std::move(text);
    }
    return result;
}

void KDLocalizedString::setLookup(Lookup lookup) {
    auto& s = state();
    const std::unique_lock lock(s.mutex);
    s.lookup = lookup ? std::move(lookup) : systemLocalizedStrings();
    s.generation.fetch_add(1, std::memory_order_release);
}

}  // namespace morvane
