// SPDX-License-Identifier: MIT
#pragma once

/// For the rows items-100k and decode-1000-entries of the bench: what is different while a large
/// array is read. Part of NSKeyedUnarchiverState.h.
namespace morvane {

/// While it exists, objects are made in blocks if the array is large.
struct NSKeyedUnarchiver::State::LargeArray {
    State& state;
    const bool isLarge;
    LargeArray(State& s, std::uint64_t count) : state(s), isLarge(count >= manyElements) {
        state.largeArrays += isLarge;
    }
    ~LargeArray() { state.largeArrays -= isLarge; }
};

/// While it exists, objects are made one by one, although a large array is being read.
struct NSKeyedUnarchiver::State::OneByOne {
    State& state;
    const std::size_t largeArrays;
    explicit OneByOne(State& s) : state(s), largeArrays(std::exchange(s.largeArrays, 0)) {}
    ~OneByOne() { state.largeArrays = largeArrays; }
    OneByOne(const OneByOne&) = delete;
    OneByOne& operator=(const OneByOne&) = delete;
};

/// While it exists, the objects of a large array that is all that the archive holds are lent to
/// `elements`: nothing that is read later leads to them.
struct NSKeyedUnarchiver::State::Lending {
    State& state;

    Lending(State& s, const Elements& elements, const Value& array) : state(s) {
        if (array.count >= manyElements && array.count <= s.rebuilt.mostLent && !s.innermost &&
            holdsOne(s)) {
            state.rebuilt.lendTo(&elements);
        }
    }
    ~Lending() {
        if (!state.innermost)
            state.rebuilt.lendTo(nullptr);
    }
    Lending(const Lending&) = delete;
    Lending& operator=(const Lending&) = delete;

  private:
    /// Whether one reference on top leads anywhere.
    static bool holdsOne(const State& s) {
        std::uint64_t leading = 0;
        for (std::uint64_t i = 0; i < s.top->value.count; ++i) {
            const auto value = s.list.valueOf<Kind::uid>(s.top->value, i);
            leading += value.kind == Kind::uid && value.bits != 0;
        }
        return leading == 1;
    }
};

}  // namespace morvane
