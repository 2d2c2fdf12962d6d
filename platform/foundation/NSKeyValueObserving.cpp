// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

namespace morvane {

/// Registrations in their order. What is removed keeps its place until half of them are gone, so
/// that adding and removing cost the same however many there are.
struct NSObservable::Many {
    static constexpr std::uint32_t none = 0xffffffff;
    /// Fewer are searched one by one.
    static constexpr std::size_t few = 16;

    struct Place {
        Registration registration;
        /// The one before it that is the same.
        std::uint32_t previous = none;
        bool removed = false;
    };

    std::vector<Place> places;
    /// The latest place of each registration, by its hash; empty while there are few. The latest of
    /// one that is not there any more is a removed place.
    std::vector<std::uint32_t> latest;
    std::size_t removedCount = 0;
    std::uint32_t telling = 0;

    void add(const Registration& registration) {
        const auto count = places.size() + 1;
        if (count > few && latest.size() < 2 * count) {
            places.reserve(2 * count);
            latest.resize(std::bit_ceil(4 * count));
            indexPlaces();
        }
        places.push_back({registration});
        if (!latest.empty())
            index(static_cast<std::uint32_t>(count - 1));
    }

    /// False if it is not there.
    bool remove(const Registration& registration) noexcept {
        const auto at = find(registration);
        if (at == none)
            return false;
        auto& place = places[at];
        place.removed = true;
        ++removedCount;
        if (place.previous != none && !latest.empty())
            slotOf(registration) = place.previous;
        return true;
    }

    /// Closes the gaps once they are half of all.
    void compact() noexcept {
        if (2 * removedCount < places.size())
            return;
        std::erase_if(places, [](const Place& place) { return place.removed; });
        removedCount = 0;
        // Never larger than it was, so that nothing is allocated.
        latest.resize(places.size() > few ? std::bit_ceil(2 * places.size()) : 0);
        indexPlaces();
    }

  private:
    std::uint32_t find(const Registration& registration) noexcept {
        if (!latest.empty()) {
            const auto at = slotOf(registration);
            return at == none || places[at].removed ? none : at;
        }
        for (auto at = places.size(); at-- > 0;) {
            if (!places[at].removed && places[at].registration == registration)
                return static_cast<std::uint32_t>(at);
        }
        return none;
    }

    /// Where the latest place of the registration is kept, or would be.
    std::uint32_t& slotOf(const Registration& registration) noexcept {
        const auto bits = [](const void* p) { return reinterpret_cast<std::uintptr_t>(p) >> 4; };
        const auto hash = (bits(registration.observer) * 31 + bits(registration.keyPath)) * 31 +
                          bits(registration.origin);
        const auto mask = latest.size() - 1;
        for (auto i = hash * 0x9E3779B97F4A7C15u >> 20;; ++i) {
            auto& slot = latest[i & mask];
            if (slot == none || places[slot].registration == registration)
                return slot;
        }
    }

    void index(std::uint32_t at) noexcept {
        auto& slot = slotOf(places[at].registration);
        places[at].previous = slot == none || places[slot].removed ? none : slot;
        slot = at;
    }

    void indexPlaces() noexcept {
        std::fill(latest.begin(), latest.end(), none);
        if (latest.empty())
            return;
        for (std::uint32_t at = 0; at < places.size(); ++at) {
            if (!places[at].removed)
                index(at);
        }
    }
};

NSObservable::NSObservable() = default;
NSObservable::~NSObservable() = default;

void NSObservable::addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath,
                               NSObject& origin) {
    if (!observer)
        throw NSException(NSInvalidArgumentException, "An observer cannot be null.");
    const Registration registration{observer, &keyPath, &origin, &keyPath.property()};
    if (!many_ && !only_.observer) {
        only_ = registration;
        return;
    }
    if (!many_) {
        auto many = std::make_unique<Many>();
        many->add(only_);
        many->add(registration);
        many_ = std::move(many);
        only_ = {};
    } else {
        many_->add(registration);
    }
}

void NSObservable::removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath,
                                  NSObject& origin) {
    const Registration registration{observer, &keyPath, &origin, &keyPath.property()};
    if (observer && only_ == registration) {
        only_ = {};
    } else if (many_ && many_->remove(registration)) {
        settle();
    } else {
        throw NSException(NSInvalidArgumentException, "The observer is not registered for \"" +
                                                          std::string(keyPath.name) + "\".");
    }
}

void NSObservable::notify(const NSKeyPath& property) {
    struct Telling {
        NSObservable& object;
        explicit Telling(NSObservable& o) : object(o) { ++object.many_->telling; }
        ~Telling() {
            --object.many_->telling;
            object.settle();
        }
    } telling(*this);
    // Those who register while observers are being told hear of the next change.
    const auto count = many_->places.size();
    for (std::size_t i = 0; i < count; ++i) {
        const auto& place = many_->places[i];
        const auto registration = place.registration;
        if (!place.removed && registration.property == &property) {
            registration.observer->observeValueForKeyPath(*registration.keyPath,
                                                          *registration.origin);
        }
    }
}

void NSObservable::settle() noexcept {
    if (many_->telling != 0)
        return;
    many_->compact();
    if (many_->places.size() > 1)
        return;
    if (!many_->places.empty())
        only_ = many_->places.front().registration;
    many_.reset();
}

}  // namespace morvane
