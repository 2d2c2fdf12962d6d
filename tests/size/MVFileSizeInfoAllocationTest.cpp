// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <new>

#include "size/SizeFixture.h"

namespace {
thread_local int allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

// Counts what the whole program allocates.
namespace morvane {
namespace {

using MVFileSizeInfoAllocationTest = SizeFixture;

int allocationsOf(const MVFileSizeInfo& info, std::int64_t size) {
    const int before = allocations;
    const auto text = info.stringWithFileSize(size, true);
    return allocations - before;
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
