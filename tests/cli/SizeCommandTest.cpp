// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <string>

#include "PropagateCommand.h"
#include "SizeCommand.h"

namespace morvane {
namespace {

std::shared_ptr<MVFileSizeItem> item(std::int64_t size, bool busy) {
    auto result = MVFileSizeItem::initWithSize(size);
    result->setBusy(busy);
    return result;
}

/// In the units that the user has chosen.
std::string inUnits(std::int64_t bytes) {
    return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(bytes, true);
}

TEST(ACancelledSum, TellsWhyItEndedAndHowFarItCame) {
    const auto outcome = runSize({.paths = {"/x"}}, [](const std::vector<NSURL>&) {
        return MVFileSizes{
            {item(4000, true)},
            NSError::errorWithDomain(
                NSPOSIXErrorDomain, ECANCELED,
                {{NSLocalizedDescriptionKey, std::string("It was cancelled. 1 was skipped.")}})};
    });
    EXPECT_EQ(outcome.exitCode, ExitInterrupted);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.message, "morvane: It was cancelled. 1 was skipped.\n  " + inUnits(4000) +
                                   " were added up so far.\n");
}

TEST(TheLiveLine, TellsWhatIsDoneWithTheRateAndTheTime) {
    EXPECT_EQ(progressLine({item(3000, false), item(1000, true)}, std::chrono::milliseconds(2500)),
              "1 of 2 done, " + inUnits(4000) + ", " + inUnits(1600) + "/s, 2 s");
}

TEST(TheLiveLine, TellsHowLongAPropagationHasGoneOn) {
    EXPECT_EQ(propagationLine(std::chrono::milliseconds(2999)), "propagating, 2 s");
}

TEST(TheLiveLine, HasNoRateWhenNoTimeHasPassed) {
    EXPECT_EQ(progressLine({item(4000, false)}, std::chrono::seconds(0)),
              "1 of 1 done, " + inUnits(4000) + ", " + inUnits(0) + "/s, 0 s");
}

TEST(TheLiveLine, CountsMoreThanThereCanBeAsTheMost) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(progressLine({item(most, false), item(most, false)}, std::chrono::seconds(0)),
              progressLine({item(most, false), item(0, false)}, std::chrono::seconds(0)));
}

}  // namespace
}  // namespace morvane
