// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>

#include <atomic>
#include <list>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace morvane {

struct NSNotificationCenter::Entry {
    Handler handler;
    std::atomic<bool> removed = false;
    std::list<std::shared_ptr<Entry>>* list = nullptr;
    std::list<std::shared_ptr<Entry>>::iterator place;
};

struct NSNotificationCenter::State {
    std::mutex mutex;
    std::map<std::string, std::list<std::shared_ptr<Entry>>, std::less<>> entries;
};

NSNotificationCenter::Observation::Observation(Observation&& other) noexcept
    : state_(std::move(other.state_)), entry_(std::move(other.entry_)) {}

NSNotificationCenter::Observation& NSNotificationCenter::Observation::operator=(
    Observation&& other) noexcept {
    // The former registration ends here, not when `other` goes.
    Observation moved(std::move(other));
    std::swap(state_, moved.state_);
    std::swap(entry_, moved.entry_);
    return *this;
}

NSNotificationCenter::Observation::~Observation() {
    if (!entry_)
        return;
    entry_->removed = true;
    if (const auto state = state_.lock()) {
        const std::lock_guard lock(state->mutex);
        entry_->list->erase(entry_->place);
    }
}

NSNotificationCenter& NSNotificationCenter::defaultCenter() {
    static auto* const center = new NSNotificationCenter;  // outlives every static observer
    return *center;
}

NSNotificationCenter::NSNotificationCenter() : state_(std::make_shared<State>()) {}

NSNotificationCenter::~NSNotificationCenter() = default;

NSNotificationCenter::Observation NSNotificationCenter::addObserver(std::string_view name,
                                                                    Handler handler) {
    auto entry = std::make_shared<Entry>();
    entry->handler = std::move(handler);
    const std::lock_guard lock(state_->mutex);
    auto found = state_->entries.find(name);
    if (found == state_->entries.end()) {
        found =
            state_->entries.emplace(std::string(name), std::list<std::shared_ptr<Entry>>()).first;
    }
    entry->list = &found->second;
    entry->place = found->second.insert(found->second.end(), entry);
    Observation observation;
    observation.state_ = state_;
    observation.entry_ = std::move(entry);
    return observation;
}

void NSNotificationCenter::postNotificationName(std::string_view name, NSObject* object) {
    std::vector<std::shared_ptr<Entry>> entries;
    {
        const std::lock_guard lock(state_->mutex);
        const auto found = state_->entries.find(name);
        if (found == state_->entries.end())
            return;
        entries.assign(found->second.begin(), found->second.end());
    }
    const NSNotification notification{name, object};
    for (const auto& entry : entries) {
        if (!entry->removed)
            entry->handler(notification);
    }
}

}  // namespace morvane
