// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <type_traits>
#include <utility>

namespace morvane {
namespace {

/// Restores `errno`: who asks for memory does not expect it to change.
class KeptErrno {
  public:
    ~KeptErrno() { errno = saved_; }

  private:
    const int saved_ = errno;
};

void* mapped(std::size_t size) {
    auto* const memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

/// Large memory that was released and serves the next one of its size: to hand out pages that were
/// cleared takes the system longer than to fill them. While it waits here, the system may take it.
class SpareMemory {
  public:
    /// Null if there is none of that size.
    void* take(std::size_t size) noexcept {
        const std::lock_guard lock(mutex_);
        for (auto& piece : pieces_) {
            if (piece.memory && piece.size == size) {
                size_ -= size;
                return std::exchange(piece.memory, nullptr);
            }
        }
        return nullptr;
    }
    /// False if there is no place for it.
    bool put(void* memory, std::size_t size) noexcept {
        const std::lock_guard lock(mutex_);
        if (size > most - size_)
            return false;
        for (auto& piece : pieces_) {
            if (!piece.memory) {
                if (madvise(memory, size, MADV_FREE) != 0)
                    return false;
                piece = {memory, size};
                size_ += size;
                return true;
            }
        }
        return false;
    }

  private:
    /// A message of 100,000 objects takes this. The objects take more, which a process does not
    /// keep for the rest of its life.
    static constexpr std::size_t most = std::size_t{8} << 20;
    struct Piece {
        void* memory = nullptr;
        std::size_t size = 0;
    };

    std::mutex mutex_;
    std::array<Piece, most / largePage> pieces_;
    std::size_t size_ = 0;
};

/// Not destroyed while other threads may still release memory: there is nothing to be destroyed.
constinit SpareMemory spareMemory;
static_assert(std::is_trivially_destructible_v<SpareMemory>);

std::size_t beforeLargePage(const void* memory) {
    return -reinterpret_cast<std::uintptr_t>(memory) % largePage;
}

}  // namespace

void willBeWritten(void* memory, std::size_t size) noexcept {
    // An area smaller than a few large pages is mostly memory that was used before.
    constexpr std::size_t least = std::size_t{8} << 20;
    if (size < least)
        return;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const auto first = (begin + page - 1) / page * page;
    const auto last = (begin + size) / page * page;
    const KeptErrno kept;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): within the memory
    madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

void* takeLargeMemory(std::size_t size) noexcept {
    const KeptErrno kept;
    if (void* const spare = spareMemory.take(size))
        return spare;
    auto* memory = static_cast<std::byte*>(mapped(size));
    if (!memory)
        return nullptr;
    if (beforeLargePage(memory) != 0) {
        // Older systems put it anywhere: what is before and behind a place that fits goes back.
        munmap(memory, size);
        memory = static_cast<std::byte*>(mapped(size + largePage));
        if (!memory)
            return nullptr;
        const auto before = beforeLargePage(memory);
        if (before != 0)
            munmap(memory, before);
        memory += before;
        munmap(memory + size, largePage - before);
    }
    madvise(memory, size, MADV_HUGEPAGE);
    return memory;
}

void* growLargeMemory(void* memory, std::size_t size, std::size_t newSize) noexcept {
    const KeptErrno kept;
    auto* const grown = mremap(memory, size, newSize, MREMAP_MAYMOVE);
    return grown == MAP_FAILED ? nullptr : grown;
}

void releaseLargeMemory(void* memory, std::size_t size) noexcept {
    const KeptErrno kept;
    if (!spareMemory.put(memory, size))
        munmap(memory, size);
}

}  // namespace morvane
