// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

/// For the rows archive-decode-entry and items-100k of the bench: the objects of one archive that
/// were rebuilt, by UID. Few archives need memory for that: most objects stand in one place, and
/// are only marked.
namespace morvane {

/// The objects that may be reached again are held here. Those that were lent are held by the array
/// that they stand in, and are found there while it is being read.
template <class Elements>
class RebuiltObjects {
  public:
    using Object = std::shared_ptr<NSObject>;

    /// Makes room for all objects of the archive.
    void resize(std::size_t count) {
        if (count > fewPlaces_.size())
            manyPlaces_.resize(count);
    }

    /// Whether find() would find nothing.
    bool isNew(std::uint64_t uid) const { return places()[uid] == nowhere; }
    /// Null for one that is not there.
    Object find(std::uint64_t uid) const {
        const auto place = places()[uid];
        const auto index = place & ~heldBit;
        if ((place & heldBit) != 0)
            return held_[index];
        // An array that was read before may have let go of it.
        return place != nowhere && index <= lent_ ? elements_->at(index - 1) : nullptr;
    }

    /// Marks what may stand in one place only; false if it stood in another.
    bool standsOnce(std::uint64_t uid) { return std::exchange(places()[uid], usedUp) == nowhere; }

    void hold(std::uint64_t uid, const Object& object) {
        held_.push_back(object);
        places()[uid] = heldBit | static_cast<std::uint32_t>(held_.size() - 1);
    }

    static constexpr std::size_t mostLent = 0x7fffffff;
    /// From now on objects are lent to `elements`, which are that many at most; to none if it is
    /// null.
    void lendTo(const Elements* elements) {
        elements_ = elements;
        lent_ = 0;
    }
    bool areLent() const { return elements_ != nullptr; }
    /// The next one of the elements has the UID.
    void lend(std::uint64_t uid) {
        ++lent_;
        auto& place = places()[uid];
        if ((place & heldBit) == 0)
            place = lent_;
    }

  private:
    static constexpr std::uint32_t nowhere = 0;
    static constexpr std::uint32_t heldBit = 0x80000000;
    static constexpr std::uint32_t usedUp = 0xffffffff;

    std::uint32_t* places() { return manyPlaces_.empty() ? fewPlaces_.data() : manyPlaces_.data(); }
    const std::uint32_t* places() const {
        return manyPlaces_.empty() ? fewPlaces_.data() : manyPlaces_.data();
    }

    /// The index of what is held, marked with the bit; the number of the element, from 1; or
    /// usedUp, which is not asked for again.
    std::array<std::uint32_t, 8> fewPlaces_{};
    std::vector<std::uint32_t> manyPlaces_;
    std::vector<Object> held_;
    const Elements* elements_ = nullptr;
    std::uint32_t lent_ = 0;
};

}  // namespace morvane
