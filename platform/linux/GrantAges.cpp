// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/GrantAges.h>

#include <cstdio>
#include <fstream>
#include <utility>

namespace morvane {
namespace {

/// After this time the policy service has certainly forgotten a grant, which it keeps for five
/// minutes.
constexpr std::chrono::minutes forgottenAfter{10};

}  // namespace

GrantAges::GrantAges(std::string file, Time now) : file_(std::move(file)) {
    if (file_.empty())
        return;
    std::ifstream lines(file_);
    PolicyGrant grant;
    for (Time::rep since = 0; lines >> grant.authority >> grant.id >> since;) {
        if (const Time time{Time::duration(since)}; time <= now)
            firstSeen_.emplace(grant, time);
    }
}

bool GrantAges::isExpired(const PolicyGrant& grant, Time now) {
    if (grant.id.empty())
        return false;
    const std::lock_guard lock(mutex_);
    std::erase_if(firstSeen_, [&](const auto& seen) { return now - seen.second > forgottenAfter; });
    const auto [known, isNew] = firstSeen_.try_emplace(grant, now);
    if (isNew || !isStored_)
        isStored_ = store();
    return !isNew && now - known->second > rightLifetime;
}

bool GrantAges::store() const {
    if (file_.empty())
        return true;
    // The file is written completely or not at all: with a truncated one, old grants would count as
    // new.
    const std::string unfinished = file_ + ".new";
    std::ofstream lines(unfinished, std::ios::trunc);
    for (const auto& [grant, since] : firstSeen_)
        lines << grant.authority << ' ' << grant.id << ' ' << since.time_since_epoch().count()
              << '\n';
    lines.close();
    return lines && std::rename(unfinished.c_str(), file_.c_str()) == 0;
}

void GrantAges::forget(const PolicyGrant& grant) {
    const std::lock_guard lock(mutex_);
    firstSeen_.erase(grant);
}

}  // namespace morvane
