// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/ObjectBlock.h>

#include <mutex>
#include <new>
#include <vector>

namespace morvane {
namespace {

/// Kept for the next large array: sizes come again and again while they are added up, and memory
/// that is new to the process costs more than to fill it.
constexpr std::size_t mostSpare = 16;  // one megabyte

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

}  // namespace

NSKeyedUnarchiver::ObjectBlock::Filled NSKeyedUnarchiver::ObjectBlock::make() {
    auto& spare = spareBlocks();
    void* memory = nullptr;
    {
        const std::lock_guard lock(spare.mutex);
        if (!spare.blocks.empty()) {
            memory = spare.blocks.back();
            spare.blocks.pop_back();
        }
    }
    return Filled(new (memory ? memory : ::operator new(sizeof(ObjectBlock))) ObjectBlock);
}

void NSKeyedUnarchiver::ObjectBlock::end() noexcept {
    this->~ObjectBlock();
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
