// SPDX-License-Identifier: MIT
#include "MemoryShortage.h"
#include "size/SizeFixture.h"

namespace morvane {
namespace {

using MVFileSizeInfoAllocationTest = SizeFixture;

long allocationsOf(const MVFileSizeInfo& info, std::int64_t size) {
    const auto before = allocationsMade();
    const auto text = info.stringWithFileSize(size, true);
    return allocationsMade() - before;
}

TEST_F(MVFileSizeInfoAllocationTest, ATextTakesNoMoreThanItself) {
    const auto info = MVFileSizeInfo::sharedFileSizeInfo();
    for (const std::int64_t size : {-1, 0, 999, 1049, 1960, 123456789})
        EXPECT_EQ(allocationsOf(*info, size), 0) << size;
    info->setMegabyteUnits("megabytes of a length that no short text has");
    EXPECT_EQ(allocationsOf(*info, 123456789), 1);
    info->setMegabyteUnits("MB");
}

}  // namespace
}  // namespace morvane
