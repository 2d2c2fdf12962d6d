// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <MorvaneOperation/platform/linux/SubordinateUsers.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string_view>

namespace morvane {
namespace {

std::optional<std::int64_t> number(std::string_view text) {
    std::uint32_t value = 0;
    const auto end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && at == end ? std::optional<std::int64_t>(value) : std::nullopt;
}

/// Removes the field up to the next colon from `line` and returns it.
std::string_view takeField(std::string_view& line) {
    const auto field = line.substr(0, line.find(':'));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

}  // namespace

SubordinateUsers& SubordinateUsers::ofTheSystem() {
    // Whoever comes and goes as fast as it can need not have the file looked at each time. The
    // object outlives static ones.
    static auto* const users = new SubordinateUsers("/etc/subuid", std::chrono::milliseconds(100));
    return *users;
}

std::int64_t SubordinateUsers::accountableFor(std::int64_t user) {
    const std::lock_guard lock(mutex_);
    readIfChanged();
    const auto range = std::find_if(ranges_.begin(), ranges_.end(), [&](const Range& each) {
        return user >= each.first && user - each.first < each.count;
    });
    if (range == ranges_.end())
        return user;
    if (!range->accountable)
        range->accountable = accountableOf(*range);
    return *range->accountable;
}

std::int64_t SubordinateUsers::accountableOf(const Range& range) {
    auto owner = number(range.owner);
    if (!owner) {
        if (const auto record = systemUserDatabase()->userWithName(range.owner))
            owner = record->id;
    }
    return owner.value_or(0) == 0 ? range.first : *owner;
}

void SubordinateUsers::readIfChanged() {
    const auto now = std::chrono::steady_clock::now();
    if (now < nextLook_)
        return;
    nextLook_ = now + staleTime_;
    struct stat status {};
    if (stat(file_.c_str(), &status) != 0) {
        ranges_.clear();
        status_ = {};
        return;
    }
    if (isSame(status, status_))
        return;
    std::ifstream lines(file_);
    if (!lines)
        return;  // There is no descriptor for the file now; the ranges from before still hold.
    status_ = status;
    ranges_.clear();
    for (std::string text; std::getline(lines, text);) {
        std::string_view line = text;
        const auto owner = takeField(line);
        const auto first = number(takeField(line));
        const auto count = number(takeField(line));
        if (first && count)
            ranges_.push_back({std::string(owner), *first, *count, std::nullopt});
    }
}

}  // namespace morvane
