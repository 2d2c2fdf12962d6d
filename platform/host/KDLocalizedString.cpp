#include <MorvaneOperation/platform/host/KDLocalizedString.h>

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
};

State& state() {
    static auto* const s = new State;  // texts are handed out for the life of the process
    return *s;
}

}  // namespace

const std::string& KDLocalizedString::localize(std::string_view key, std::string_view table) {
    static const std::string empty;
    if (key.empty())
        return empty;
    auto& s = state();
    KDLocalizedString::Lookup lookup;
    {
        const std::shared_lock lock(s.mutex);
        const auto found = s.known.find({table, key});
        if (found != s.known.end())
            return found->second->text;
        lookup = s.lookup;
    }
    // Not under the lock: the host's look-up may come back here.
    Text text{std::string(table), std::string(key), {}};
    text.text = lookup(text.key, text.table);
    const std::unique_lock lock(s.mutex);
    const auto found = s.known.find({table, key});
    if (found != s.known.end())
        return found->second->text;
    const auto& kept = s.texts.emplace_back(std::move(text));
    s.known.emplace(Place{kept.table, kept.key}, &kept);
    return kept.text;
}

void KDLocalizedString::setLookup(Lookup lookup) {
    auto& s = state();
    const std::unique_lock lock(s.mutex);
    s.lookup = lookup ? std::move(lookup) : systemLocalizedStrings();
    s.known.clear();
}

}  // namespace morvane
