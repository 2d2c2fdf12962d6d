#include <MorvaneOperation/platform/host/KDLocalizedString.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

namespace morvane {
namespace {

struct Text {
    std::string table;
    std::string key;
    std::string text;
};

/// A text's place: by content, looked up by views.
struct Place {
    std::string_view table;
    std::string_view key;
    bool operator==(const Place&) const = default;
};
struct PlaceHash {
    std::size_t operator()(const Place& place) const {
        return std::hash<std::string_view>()(place.key) * 31 + place.table.size();
    }
};

struct State {
    std::shared_mutex mutex;
    KDLocalizedString::Lookup lookup = systemLocalizedStrings();
    /// Never shrinks: texts were handed out.
    std::deque<Text> texts;
    std::unordered_map<Place, const Text*, PlaceHash> known;
    /// Counts the look-ups that were set.
    std::atomic<std::uint64_t> generation = 1;
};

/// What this thread has looked up lately: every decoded check box asks for its name again.
struct RecentTexts {
    std::uint64_t generation = 0;
    std::array<const Text*, 256> texts{};

    /// The place of `key`, whose text may be there.
    const Text*& at(std::string_view key) {
        std::uint64_t word = 0;
        std::memcpy(&word, key.data(), std::min(key.size(), sizeof word));
        word ^= key.size() << 32 ^ static_cast<std::uint64_t>(key.back()) << 40;
        return texts[word * 0x9E3779B97F4A7C15u >> 56];
    }
};

State& state() {
    static auto* const s = new State;  // texts are handed out for the life of the process
    return *s;
}

}  // namespace

const std::string& KDLocalizedString::localize(std::string_view key, std::string_view table) {
    static const auto& empty = *new std::string;
    if (key.empty())
        return empty;
    auto& s = state();
    thread_local RecentTexts recentTexts;
    const auto generation = s.generation.load(std::memory_order_acquire);
    if (recentTexts.generation != generation)
        recentTexts = {generation, {}};
    const Text*& recent = recentTexts.at(key);
    if (recent && recent->key == key && recent->table == table)
        return recent->text;
    KDLocalizedString::Lookup lookup;
    std::uint64_t lookupGeneration = 0;
    {
        const std::shared_lock lock(s.mutex);
        const auto found = s.known.find({table, key});
        if (found != s.known.end()) {
            recent = found->second;
            return recent->text;
        }
        lookup = s.lookup;
        lookupGeneration = s.generation.load(std::memory_order_relaxed);
    }
    // Not under the lock: the host's look-up may come back here.
    Text text{std::string(table), std::string(key), {}};
    text.text = lookup(text.key, text.table);
    const std::unique_lock lock(s.mutex);
    const auto found = s.known.find({table, key});
    if (found != s.known.end())
        return found->second->text;
    const auto& kept = s.texts.emplace_back(std::move(text));
    // What a look-up tells that was replaced meanwhile is not remembered.
    if (lookupGeneration == s.generation.load(std::memory_order_relaxed))
        s.known.emplace(Place{kept.table, kept.key}, &kept);
    return kept.text;
}

void KDLocalizedString::setLookup(Lookup lookup) {
    auto& s = state();
    const std::unique_lock lock(s.mutex);
    s.lookup = lookup ? std::move(lookup) : systemLocalizedStrings();
    s.known.clear();
    s.generation.fetch_add(1, std::memory_order_release);
}

}  // namespace morvane
