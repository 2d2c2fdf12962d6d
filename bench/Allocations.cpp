// SPDX-License-Identifier: MIT
#include "Allocations.h"

#include <cstdlib>
#include <new>

// Replaces operator new for the whole process. A plain counter of each thread: what is timed is
// hardly slowed by it.
namespace bench {
namespace {

thread_local std::uint64_t count = 0;

}  // namespace

std::uint64_t allocationCount() {
    return count;
}

}  // namespace bench

__attribute__((visibility("default"))) void* operator new(std::size_t size) {
    ++bench::count;
    if (void* memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

__attribute__((visibility("default"))) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
