// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <MorvaneOperation/platform/archive/fast/ObjectBlock.h>

#include <mutex>
#include <new>
#include <vector>

/// For the row items-100k of the bench.
namespace morvane {
namespace {

constexpr std::size_t smallBlock = std::size_t{64} << 10;
/// From a megabyte of small blocks on an array has large ones.
constexpr std::size_t smallBlocks = 16;
/// Small blocks are kept for the next large array: sizes come again and again while they are added
/// up, and memory that is new to the process costs more than to fill it.
constexpr std::size_t mostSpare = smallBlocks;

struct SpareBlocks {
    std::mutex mutex;
    std::vector<void*> blocks;
    SpareBlocks() { blocks.reserve(mostSpare); }
};

SpareBlocks& spareBlocks() {
    // Never destroyed: other threads may decode while the process ends.
    static auto& spare = *new SpareBlocks;
    return spare;
}

void* spareBlock() {
    auto& spare = spareBlocks();
    const std::lock_guard lock(spare.mutex);
    if (spare.blocks.empty())
        return nullptr;
    auto* const memory = spare.blocks.back();
    spare.blocks.pop_back();
    return memory;
}

}  // namespace

NSKeyedUnarchiver::ObjectBlock::Filled NSKeyedUnarchiver::ObjectBlock::make(
    std::size_t filledBefore) {
    if (filledBefore >= smallBlocks) {
        if (void* const memory = takeLargeMemory(largePage))
            return Filled(new (memory) ObjectBlock(largePage));
    }
    void* const memory = spareBlock();
    return Filled(new (memory ? memory : ::operator new(smallBlock)) ObjectBlock(smallBlock));
}

void NSKeyedUnarchiver::ObjectBlock::end() noexcept {
    const auto size = size_;
    this->~ObjectBlock();
    if (size == largePage) {
        releaseLargeMemory(this, size);
        return;
    }
    auto& spare = spareBlocks();
    {
        const std::lock_guard lock(spare.mutex);
        if (spare.blocks.size() < mostSpare) {
            spare.blocks.push_back(this);
            return;
        }
    }
    ::operator delete(this);
}

void* NSKeyedUnarchiver::allocateIn(ObjectBlock& block, std::size_t size) noexcept {
    return block.allocate(size);
}

void NSKeyedUnarchiver::releaseIn(ObjectBlock& block) noexcept {
    block.release();
}

}  // namespace morvane
