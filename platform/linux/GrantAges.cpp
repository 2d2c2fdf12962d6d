#include <MorvaneOperation/platform/linux/GrantAges.h>

#include <utility>

namespace morvane {
namespace {

/// A grant that the policy service has surely let go, its own time being five minutes.
constexpr std::chrono::minutes forgottenAfter{10};

}  // namespace

bool GrantAges::isExpired(const std::string& id, Time now) {
    if (id.empty())
        return false;
    const std::lock_guard lock(mutex_);
    std::erase_if(firstSeen_,
                  [&](const auto& grant) { return now - grant.second > forgottenAfter; });
    const auto [known, isNew] = firstSeen_.try_emplace(id, now);
    return !isNew && now - known->second > rightLifetime;
}

void GrantAges::forget(const std::string& id) {
    const std::lock_guard lock(mutex_);
    firstSeen_.erase(id);
}

std::map<std::string, GrantAges::Time> GrantAges::takeAll() {
    const std::lock_guard lock(mutex_);
    return std::exchange(firstSeen_, {});
}

}  // namespace morvane
