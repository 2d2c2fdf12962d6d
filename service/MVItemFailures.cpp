// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemFailures.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace morvane {
namespace {

template <class Value>
const Value* find(const NSErrorUserInfo& userInfo, const char* key) {
    const auto found = userInfo.find(key);
    return found == userInfo.end() ? nullptr : std::get_if<Value>(&found->second);
}

std::uint64_t countFor(const NSErrorUserInfo& userInfo, const char* key) {
    constexpr std::int64_t most = std::int64_t{1} << 53;
    const auto* const count = find<std::int64_t>(userInfo, key);
    return count ? static_cast<std::uint64_t>(std::clamp<std::int64_t>(*count, 0, most)) : 0;
}

/// As many as are named at most.
std::vector<NSErrorRef>::const_iterator endOfNamed(const std::vector<NSErrorRef>& errors) {
    return errors.begin() +
           static_cast<std::ptrdiff_t>(std::min(errors.size(), MVMostItemFailures));
}

bool isOfAnItem(const NSErrorRef& error) {
    return error && error->domain() == NSPOSIXErrorDomain &&
           find<NSURL>(error->userInfo(), NSURLErrorKey);
}

}  // namespace

MVItemFailures failuresOfError(const NSError& error) {
    const auto& userInfo = error.userInfo();
    MVItemFailures failures{
        {}, {countFor(userInfo, MVItemsDoneKey), countFor(userInfo, MVItemsFailedKey)}};
    if (const auto* all = find<std::vector<NSErrorRef>>(userInfo, NSMultipleUnderlyingErrorsKey))
        std::copy_if(all->begin(), all->end(), std::back_inserter(failures.errors), isOfAnItem);
    failures.counts.failed =
        std::max<std::uint64_t>(failures.counts.failed, failures.errors.size());
    failures.errors.erase(endOfNamed(failures.errors), failures.errors.end());
    return failures;
}

NSErrorRef errorWithFailures(const NSErrorRef& error, const MVItemFailures& failures) {
    auto userInfo = error->userInfo();
    std::vector<NSErrorRef> all;
    if (const auto* known = find<std::vector<NSErrorRef>>(userInfo, NSMultipleUnderlyingErrorsKey))
        std::remove_copy_if(known->begin(), known->end(), std::back_inserter(all), isOfAnItem);
    all.insert(all.end(), failures.errors.begin(), endOfNamed(failures.errors));
    if (all.empty())
        userInfo.erase(NSMultipleUnderlyingErrorsKey);
    else
        userInfo.insert_or_assign(NSMultipleUnderlyingErrorsKey, std::move(all));
    userInfo.insert_or_assign(MVItemsDoneKey, static_cast<std::int64_t>(failures.counts.done));
    userInfo.insert_or_assign(MVItemsFailedKey, static_cast<std::int64_t>(failures.counts.failed));
    return NSError::errorWithDomain(error->domain(), error->code(), std::move(userInfo));
}

}  // namespace morvane
