// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace morvane {

void willBeWritten(void* memory, std::size_t size) noexcept {
    // An area smaller than a few large pages is mostly memory that was used before.
    constexpr std::size_t least = std::size_t{8} << 20;
    if (size < least)
        return;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const auto first = (begin + page - 1) / page * page;
    const auto last = (begin + size) / page * page;
    const int saved = errno;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): within the memory
    madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    errno = saved;
}

}  // namespace morvane
