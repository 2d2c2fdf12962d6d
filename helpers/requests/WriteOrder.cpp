// SPDX-License-Identifier: MIT
#include "WriteOrder.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string_view>
#include <utility>

namespace morvane {
namespace {

/// Whether one of `paths` is one of `others`, or below it.
bool isAtOrBelow(const WriteOrder::Paths& paths, const WriteOrder::Paths& others) {
    return std::any_of(paths.begin(), paths.end(), [&](std::string_view part) {
        for (;;) {
            if (others.contains(part))
                return true;
            const auto slash = part.rfind('/');
            if (slash == std::string_view::npos || part.size() == 1)
                return false;
            part = part.substr(0, slash == 0 ? 1 : slash);
        }
    });
}

}  // namespace

/// The state behind a write's token.
class WriteOrder::Place {
  public:
    explicit Place(std::shared_ptr<WriteOrder> order) : order_(std::move(order)) {}
    ~Place() {
        if (isTaken_)
            order_->end(entry_);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    void take(Entries::iterator entry) noexcept {
        entry_ = entry;
        isTaken_ = true;
    }

  private:
    const std::shared_ptr<WriteOrder> order_;
    Entries::iterator entry_;
    bool isTaken_ = false;
};

void WriteOrder::begin(const std::shared_ptr<WriteOrder>& order, Paths paths, Write write) {
    Entries fresh;
    std::list<Task> now;
    {
        auto token = std::make_shared<Place>(order);
        auto& place = *token;
        auto& entry = fresh.emplace_back();
        entry.paths = std::move(paths);
        entry.waiting.emplace_back([write = std::move(write), token = std::move(token)]() mutable {
            write(std::move(token));
        });
        const std::lock_guard lock(order->mutex_);
        order->entries_.splice(order->entries_.end(), fresh);
        const auto last = std::prev(order->entries_.end());
        place.take(last);
        if (order->mayBegin(last))
            now.swap(entry.waiting);
    }
    for (auto& task : now)
        task();
}

bool WriteOrder::mayBegin(Entries::const_iterator entry) const {
    return std::none_of(entries_.begin(), entry, [&](const Entry& earlier) {
        return isAtOrBelow(entry->paths, earlier.paths) || isAtOrBelow(earlier.paths, entry->paths);
    });
}

void WriteOrder::end(Entries::iterator entry) noexcept {
    Entries ended;  // goes outside the lock
    std::unique_lock lock(mutex_);
    ended.splice(ended.end(), entries_, entry);
    for (auto each = entries_.begin(); each != entries_.end(); ++each) {
        if (!each->waiting.empty() && mayBegin(each))
            free_.splice(free_.end(), each->waiting);
    }
    // A write that the runner drops ends here, inside the loop of the thread that has passed it on.
    if (std::exchange(isBeingFreed_, true))
        return;
    while (!free_.empty()) {
        std::list<Task> next;
        next.splice(next.end(), free_, free_.begin());
        lock.unlock();
        try {
            runner_(std::move(next.front()));
        } catch (const std::exception&) {
            // Its request ends with it.
        }
        next.clear();
        lock.lock();
    }
    isBeingFreed_ = false;
}

}  // namespace morvane
