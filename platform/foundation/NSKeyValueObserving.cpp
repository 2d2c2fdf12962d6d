#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSKeyValueObserving.h>

#include <string>

namespace morvane {

NSObservable::~NSObservable() = default;

void NSObservable::addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath,
                               NSObject& origin) {
    if (!observer)
        throw NSException(NSInvalidArgumentException, "An observer cannot be null.");
    const Registration registration{observer, &keyPath, &origin};
    if (count_ == 0) {
        first_ = registration;
    } else {
        if (!rest_)
            rest_ = std::make_unique<std::vector<Registration>>();
        rest_->push_back(registration);
    }
    ++count_;
}

void NSObservable::removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath,
                                  NSObject& origin) {
    for (std::size_t i = count_; i-- > 0;) {
        auto& registration = at(i);
        if (registration.observer != observer || registration.keyPath != &keyPath ||
            registration.origin != &origin) {
            continue;
        }
        if (count_ == 1 && telling_ == 0) {
            first_ = {};
            count_ = 0;
            return;
        }
        registration.observer = nullptr;
        if (telling_ != 0) {
            removedWhileTelling_ = true;
        } else {
            compact();
        }
        return;
    }
    throw NSException(NSInvalidArgumentException,
                      "The observer is not registered for \"" + std::string(keyPath.name) + "\".");
}

void NSObservable::notify(const NSKeyPath& property) {
    struct Telling {
        NSObservable& object;
        explicit Telling(NSObservable& o) : object(o) { ++object.telling_; }
        ~Telling() {
            if (--object.telling_ == 0 && object.removedWhileTelling_)
                object.compact();
        }
    } telling(*this);
    // Those who register while observers are being told hear of the next change.
    const std::size_t count = count_;
    for (std::size_t i = 0; i < count; ++i) {
        const auto& registration = at(i);
        if (registration.observer && &registration.keyPath->property() == &property) {
            registration.observer->observeValueForKeyPath(*registration.keyPath,
                                                          *registration.origin);
        }
    }
}

void NSObservable::compact() {
    removedWhileTelling_ = false;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        if (at(i).observer)
            at(kept++) = at(i);
    }
    count_ = static_cast<std::uint32_t>(kept);
    if (kept == 0)
        first_ = {};
    if (rest_)
        rest_->resize(kept > 0 ? kept - 1 : 0);
}

}  // namespace morvane
