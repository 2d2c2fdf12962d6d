// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVItemFailures.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace morvane {
namespace {

NSErrorRef failureOfItem(std::size_t number) {
    return NSError::errorWithDomain(
        NSPOSIXErrorDomain, EPERM,
        {{NSURLErrorKey, NSURL::fileURLWithPath("/item" + std::to_string(number))}});
}

std::vector<NSErrorRef> failuresOfItems(std::size_t count) {
    std::vector<NSErrorRef> all;
    for (std::size_t i = 0; i != count; ++i)
        all.push_back(failureOfItem(i));
    return all;
}

/// An error as a peer may send it.
NSErrorRef sentError(const std::vector<NSErrorRef>& underlying, std::int64_t done,
                     std::int64_t failed) {
    return NSError::errorWithDomain(NSPOSIXErrorDomain, EPERM,
                                    {{NSMultipleUnderlyingErrorsKey, underlying},
                                     {MVItemsDoneKey, done},
                                     {MVItemsFailedKey, failed}});
}

TEST(ItemFailures, ToldAnewAnErrorTellsTheSame) {
    const auto cause = NSError::errorWithDomain(NSPOSIXErrorDomain, EREMOTEIO);
    const auto error =
        errorWithFailures(sentError({cause}, 0, 0), {failuresOfItems(3), MVItemCounts{5, 3}});
    const auto again = errorWithFailures(error, failuresOfError(*error));
    const auto failures = failuresOfError(*again);
    EXPECT_EQ(failures.errors.size(), 3u);
    EXPECT_EQ(failures.counts, (MVItemCounts{5, 3}));
    const auto& all =
        std::get<std::vector<NSErrorRef>>(again->userInfo().at(NSMultipleUnderlyingErrorsKey));
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all.front(), cause);
}

TEST(ItemFailures, AnErrorTellsOfThoseItemsAloneThatItIsGiven) {
    const auto error = errorWithFailures(sentError(failuresOfItems(3), 1, 3), {{}, {7, 0}});
    EXPECT_EQ(failuresOfError(*error).counts, (MVItemCounts{7, 0}));
    EXPECT_EQ(error->userInfo().count(NSMultipleUnderlyingErrorsKey), 0u);
}

TEST(ItemFailures, OfMoreThanAThousandTheFirstAreNamedAndAllCounted) {
    const auto many = failuresOfItems(MVMostItemFailures + 5);
    const auto taken = failuresOfError(*sentError(many, 0, 0));
    ASSERT_EQ(taken.errors.size(), MVMostItemFailures);
    EXPECT_EQ(taken.errors.back(), many[MVMostItemFailures - 1]);
    EXPECT_EQ(taken.counts.failed, many.size());
    const auto error = errorWithFailures(sentError({}, 0, 0), {many, {0, many.size()}});
    EXPECT_EQ(std::get<std::vector<NSErrorRef>>(error->userInfo().at(NSMultipleUnderlyingErrorsKey))
                  .size(),
              MVMostItemFailures);
}

TEST(ItemFailures, CountsThatNoTreeCanHaveAreNotBelieved) {
    constexpr auto largest = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(failuresOfError(*sentError({}, largest, -1)).counts,
              (MVItemCounts{std::uint64_t{1} << 53, 0}));
    EXPECT_EQ(failuresOfError(*sentError({}, -largest, largest)).counts,
              (MVItemCounts{0, std::uint64_t{1} << 53}));
}

}  // namespace
}  // namespace morvane
