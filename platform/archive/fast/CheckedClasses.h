// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// For the row archive-decode-entry of the bench: the classes of an archive that were checked, each
/// of which is mostly that of many objects. What is known of a class here is what it is; whether it
/// is allowed where it stands is asked each time.
namespace morvane::keyed {

inline bool contains(std::span<const NSClass* const> classes, const NSClass& c) {
    for (const auto* each : classes) {
        if (each == &c)
            return true;
    }
    return false;
}

class CheckedClasses {
  public:
    /// Of the object before, if the reference to its class has that number and it is allowed.
    const NSClass* last(std::uint64_t number, std::span<const NSClass* const> allowed) const {
        return last_ && lastNumber_ == number && contains(allowed, *last_) ? last_ : nullptr;
    }
    const NSClass& setLast(std::uint64_t number, const NSClass& c) {
        lastNumber_ = number;
        last_ = &c;
        return c;
    }

    /// Null for one that is not known.
    const NSClass* find(std::uint64_t uid) const {
        for (std::size_t i = 0; i < count_; ++i) {
            if (known_[i].uid == uid)
                return known_[i].c;
        }
        return nullptr;
    }
    void add(std::uint64_t uid, const NSClass& c) {
        if (count_ < known_.size())
            known_[count_++] = {uid, &c};
    }

  private:
    struct Known {
        std::uint64_t uid;
        const NSClass* c;
    };
    std::array<Known, 8> known_;
    std::size_t count_ = 0;
    std::uint64_t lastNumber_ = 0;
    const NSClass* last_ = nullptr;
};

}  // namespace morvane::keyed
