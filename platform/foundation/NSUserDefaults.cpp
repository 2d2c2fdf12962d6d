// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <algorithm>
#include <utility>

namespace morvane {
namespace {
bool isTrue(const DefaultsStore::Values& values, std::string_view key) {
    const auto found = values.find(key);
    return found != values.end() &&
           (found->second == "true" || found->second == "yes" || found->second == "1");
}
}  // namespace

DefaultsStore::~DefaultsStore() = default;

NSUserDefaults& NSUserDefaults::standardUserDefaults() {
    static auto* const defaults = new NSUserDefaults(systemDefaultsStore());
    return *defaults;
}

NSUserDefaults::NSUserDefaults(std::shared_ptr<DefaultsStore> store)
    : store_(std::move(store)), values_(store_->load()) {}

NSUserDefaults::~NSUserDefaults() {
    // The store goes outside the lock: its last call may be waiting for it.
    std::shared_ptr<DefaultsStore> former;
    {
        const std::lock_guard lock(mutex_);
        former.swap(store_);
    }
}

bool NSUserDefaults::boolForKey(std::string_view key) const {
    const std::lock_guard lock(mutex_);
    return isTrue(values_, key);
}

NSErrorRef NSUserDefaults::setBool(bool value, std::string_view key) {
    const std::string_view text = value ? "true" : "false";
    NSErrorRef error;
    std::vector<Registration> told;
    {
        // Held while the file is written, so that its event finds the new value here.
        const std::lock_guard lock(mutex_);
        error = store_->save(key, text);
        auto values = store_->load();
        values.insert_or_assign(std::string(key), text);
        told = takeOver(std::move(values), key);
    }
    notify(told);
    return error;
}

void NSUserDefaults::addObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath) {
    if (!observer)
        throw NSException(NSInvalidArgumentException, "An observer cannot be null.");
    const std::lock_guard lock(mutex_);
    registrations_.push_back({observer, &keyPath});
    if (!watching_)
        watchStore();
}

void NSUserDefaults::removeObserver(NSKeyValueObserver* observer, const NSKeyPath& keyPath) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find_if(
        registrations_.rbegin(), registrations_.rend(),
        [&](const Registration& r) { return r.observer == observer && r.keyPath == &keyPath; });
    if (found == registrations_.rend()) {
        throw NSException(NSInvalidArgumentException, "The observer is not registered for \"" +
                                                          std::string(keyPath.name) + "\".");
    }
    registrations_.erase(std::next(found).base());
}

void NSUserDefaults::setStore(std::shared_ptr<DefaultsStore> store) {
    if (!store)
        store = systemDefaultsStore();
    {
        const std::lock_guard lock(mutex_);
        std::swap(store_, store);
        values_ = store_->load();
        watching_ = false;
        if (!registrations_.empty())
            watchStore();
    }
    // As above, the former store goes here.
}

void NSUserDefaults::watchStore() {
    watching_ = true;
    store_->watch([this, store = store_.get()] { storeChanged(store); });
}

void NSUserDefaults::storeChanged(const DefaultsStore* store) {
    std::vector<Registration> told;
    {
        const std::lock_guard lock(mutex_);
        if (store_.get() != store)
            return;
        told = takeOver(store_->load(), {});
    }
    notify(told);
}

std::vector<NSUserDefaults::Registration> NSUserDefaults::takeOver(DefaultsStore::Values values,
                                                                   std::string_view setKey) {
    std::vector<Registration> told;
    for (const auto& registration : registrations_) {
        const std::string_view key = registration.keyPath->name;
        if (isTrue(values_, key) != isTrue(values, key) || (!setKey.empty() && key == setKey))
            told.push_back(registration);
    }
    values_ = std::move(values);
    return told;
}

void NSUserDefaults::notify(const std::vector<Registration>& registrations) {
    for (const auto& registration : registrations)
        registration.observer->observeValueForKeyPath(*registration.keyPath, *this);
}

}  // namespace morvane
