// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// For the row archive-encode-entry of the bench: the objects of one archive that were written or
/// are being written, by address, in memory that the next archive uses again.
namespace morvane {

class ObjectTable {
  public:
    /// The UID of `object`, and whether it is new; `nextUID` is given to a new one.
    std::pair<std::uint32_t, bool> insert(const void* object, std::uint32_t nextUID) {
        if (slots_.size() < 2 * (count_ + 1))
            grow(4 * slots_.size());
        auto& slot = find(object);
        if (slot != free)
            return {slot, false};
        slot = nextUID;
        if (addresses_.size() < nextUID)
            addresses_.resize(nextUID);
        addresses_.push_back(object);
        ++count_;
        return {nextUID, true};
    }

    /// Makes room for `more` objects.
    void reserveMore(std::size_t more) {
        grow(2 * (count_ + more + 1));
        addresses_.reserve(addresses_.size() + more);
    }

    void clear() {
        if (count_ == 0)
            return;
        slots_.assign(slots_.size() > keptSlots ? 0 : slots_.size(), free);
        addresses_.clear();
        count_ = 0;
    }

  private:
    static constexpr std::size_t fewestSlots = 16;
    static constexpr std::size_t keptSlots = 64;
    /// The UID of "$null".
    static constexpr std::uint32_t free = 0;

    std::uint32_t& find(const void* object) {
        // Neighbours in memory, which are often written one after the other, stay neighbours.
        const auto address = reinterpret_cast<std::uintptr_t>(object);
        const auto mask = slots_.size() - 1;
        for (auto i = address >> 5 ^ address >> 12 ^ address >> 20;; ++i) {
            auto& slot = slots_[i & mask];
            if (slot == free || addresses_[slot] == object)
                return slot;
        }
    }

    void grow(std::size_t needed) {
        if (slots_.size() >= std::max(needed, fewestSlots))
            return;
        slots_.assign(std::bit_ceil(std::max(needed, fewestSlots)), free);
        for (std::size_t uid = 0; uid < addresses_.size(); ++uid) {
            if (addresses_[uid])
                find(addresses_[uid]) = static_cast<std::uint32_t>(uid);
        }
    }

    /// UIDs, by the hash of the address.
    std::vector<std::uint32_t> slots_;
    /// By UID; null for what is no object.
    std::vector<const void*> addresses_;
    std::size_t count_ = 0;
};

}  // namespace morvane
