// SPDX-License-Identifier: MIT
#pragma once

/// For the rows items-100k and encode-1000-entries of the bench: an array of many elements, or of
/// large ones, gets its memory before its elements come, and is written while they come. It is not
/// copied once more, nor each time that it has grown. Part of NSKeyedArchiverState.h.
namespace morvane {

inline void NSKeyedArchiver::State::arrayBegun(std::size_t count) {
    constexpr std::size_t many = 1024;
    /// With so many elements, of a few values each, a list needs references of three bytes or more.
    constexpr std::size_t veryMany = 32768;
    if (count < many)
        return;
    pending.reserve(pending.size() + count + 2 * many);
    objects.reserve(objects.size() + count + many);
    table.reserveMore(count);
    if (count < veryMany) {
        list.reserveMore(count);
    } else {
        nil();  // the UID that may be asked for again
        constexpr std::size_t valuesEach = 4;
        constexpr std::size_t bytesEach = 96;
        list.beginLarge(count * valuesEach, count * bytesEach);
    }
}

inline void NSKeyedArchiver::State::elementAdded() {
    // So many elements tell what all of them will take.
    constexpr std::size_t sample = 64;
    constexpr std::size_t muchToWrite = std::size_t{1} << 20;
    if (arrays.empty() || pending.size() - arrays.back().base != sample)
        return;
    const auto& array = arrays.back();
    // What was there before stays; what has come since comes again and again.
    const auto forAll = [&](std::size_t before, std::size_t now) {
        return before + (now - std::min(before, now)) / sample * array.count / 4 * 5;
    };
    const auto bytes = forAll(array.bytes, list.size());
    if (bytes - array.bytes < muchToWrite)
        return;
    const auto mostObjects = forAll(array.objects, objects.size());
    objects.reserve(mostObjects);
    list.beginLarge(forAll(array.values, list.valueCount()) + mostObjects, bytes);
}

}  // namespace morvane
