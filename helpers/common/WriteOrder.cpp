#include "WriteOrder.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace morvane {
namespace {

/// Whether one of `paths` is one of `others`, or below it.
bool isAtOrBelow(const std::set<std::string>& paths, const std::set<std::string>& others) {
    return std::any_of(paths.begin(), paths.end(), [&](const std::string& path) {
        auto part = path;
        for (;;) {
            if (others.contains(part))
                return true;
            const auto slash = part.rfind('/');
            if (slash == std::string::npos || part.size() == 1)
                return false;
            part.resize(slash == 0 ? 1 : slash);
        }
    });
}

}  // namespace

void WriteOrder::begin(const std::shared_ptr<WriteOrder>& order, std::set<std::string> paths,
                       Write write) {
    Token token;
    {
        const std::lock_guard lock(order->mutex_);
        const auto entry = order->entries_.insert(order->entries_.end(), {std::move(paths), {}});
        if (!order->mayBegin(entry)) {
            entry->write = std::move(write);
            return;
        }
        token = tokenFor(order, entry);
    }
    write(std::move(token));
}

bool WriteOrder::mayBegin(Entries::const_iterator entry) const {
    return std::none_of(entries_.begin(), entry, [&](const Entry& earlier) {
        return isAtOrBelow(entry->paths, earlier.paths) || isAtOrBelow(earlier.paths, entry->paths);
    });
}

WriteOrder::Token WriteOrder::tokenFor(const std::shared_ptr<WriteOrder>& order,
                                       Entries::iterator entry) {
    return {nullptr, [order, entry](void*) { done(order, entry); }};
}

void WriteOrder::done(const std::shared_ptr<WriteOrder>& order, Entries::iterator entry) {
    std::vector<std::function<void()>> free;
    {
        const std::lock_guard lock(order->mutex_);
        order->entries_.erase(entry);
        for (auto each = order->entries_.begin(); each != order->entries_.end(); ++each) {
            if (each->write && order->mayBegin(each)) {
                free.push_back(
                    [write = std::exchange(each->write, nullptr),
                     token = tokenFor(order, each)]() mutable { write(std::move(token)); });
            }
        }
    }
    for (auto& write : free)
        order->runner_(std::move(write));
}

}  // namespace morvane
