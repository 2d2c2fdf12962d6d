// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

/// For the row items-100k of the bench: the objects of a large array stand side by side in blocks
/// of memory. One unarchiver fills a block, and it goes with the last of its objects, on whatever
/// thread.
namespace morvane {

class alignas(std::max_align_t) NSKeyedUnarchiver::ObjectBlock {
  public:
    struct Close {
        void operator()(ObjectBlock* filled) const { filled->close(); }
    };
    using Filled = std::unique_ptr<ObjectBlock, Close>;
    /// The next block of an unarchiver that has filled so many. The first ones are small, and
    /// memory that was used before where there is some.
    static Filled make(std::size_t filledBefore);

    bool hasRoom(std::size_t size) const { return size <= size_ - used_; }
    /// For one object, where there is room.
    void* allocate(std::size_t size) noexcept {
        constexpr auto unit = alignof(std::max_align_t);
        ++made_;
        return reinterpret_cast<std::byte*>(this) +
               std::exchange(used_, used_ + (size + unit - 1) / unit * unit);
    }
    /// The end of one object.
    void release() noexcept { release(1); }

    /// The largest object that is put into a block.
    static constexpr std::size_t largest = 1024;

  private:
    /// More than there can be objects.
    static constexpr std::size_t held = std::size_t{1} << 30;

    explicit ObjectBlock(std::size_t size) : size_(size) {}
    /// No further object will be put there.
    void close() noexcept { release(held - made_); }
    void end() noexcept;
    void release(std::size_t count) noexcept {
        if (left_.fetch_sub(count, std::memory_order_acq_rel) == count)
            end();
    }

    std::atomic<std::size_t> left_ = held;
    std::size_t made_ = 0;
    /// Bytes of the block, of which this object is the first, and those that are taken.
    const std::size_t size_;
    std::size_t used_ = sizeof(ObjectBlock);
};

}  // namespace morvane
