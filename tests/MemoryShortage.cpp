// SPDX-License-Identifier: MIT
#include "MemoryShortage.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> isShort = false;
std::atomic<bool> lasts = false;
std::atomic<long> allocationsLeft = 0;
std::atomic<bool> hasFailed = false;
std::atomic<long> made = 0;
std::atomic<long> held = 0;

bool fails() {
    if (!isShort)
        return false;
    const auto left = allocationsLeft.fetch_sub(1);
    const bool now = lasts ? left <= 0 : left == 0;
    if (now)
        hasFailed = true;
    return now;
}

}  // namespace

void* operator new(std::size_t size) {
    if (!fails()) {
        if (void* const memory = std::malloc(size)) {
            ++made;
            ++held;
            return memory;
        }
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    if (memory)
        --held;
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace morvane {

MemoryShortage::MemoryShortage(long count, bool forGood) {
    hasFailed = false;
    lasts = forGood;
    allocationsLeft = count;
    isShort = true;
}

MemoryShortage::~MemoryShortage() {
    isShort = false;
}

bool MemoryShortage::isReached() const {
    return hasFailed;
}

long allocationsMade() {
    return made;
}

long allocationsHeld() {
    return held;
}

}  // namespace morvane
