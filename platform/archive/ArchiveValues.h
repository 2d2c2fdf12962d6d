// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/ArchiveFailure.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/archive/fast/ArchiveFront.h>
#include <MorvaneOperation/platform/archive/fast/KeyLookup.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// The values of one archive, as they stand there, and what reading them may still cost.
/// Everything in it came from anyone.
namespace morvane::keyed {

inline std::string_view asciiText(const Value& value) {
    return {reinterpret_cast<const char*>(value.bytes), std::size_t{value.count}};
}

/// While it exists, what is read stands one level deeper.
struct Depth {
    NSDecodingBudget& budget;
    Depth(NSDecodingBudget& b, std::string_view key) : budget(b) {
        if (budget.depth == 0)
            fail(key, "objects are nested too deeply");
        --budget.depth;
    }
    ~Depth() { ++budget.depth; }
};

struct ArchiveValues {
    PropertyListReader list;
    NSDecodingBudget ownBudget;
    KeptKeys ownKeys;
    /// Those of an archive serve the archives that are nested in it as well.
    NSDecodingBudget& budget;
    KeyLookup& keys;
    const std::uint64_t listNumber;
    /// "$objects", by UID.
    Value objects;
    /// The text that was converted last.
    std::string converted;

    ArchiveValues(NSDataView data, const NSDecodingBudget& most)
        : list(data, &ArchiveFront::common()),
          ownBudget(most),
          ownKeys(takeKeys()),
          budget(ownBudget),
          keys(*ownKeys),
          listNumber(keys.nextList()) {}
    /// Of an archive that is nested in another, whose bytes are bytes of that one. It is expected
    /// to start with the front.
    ArchiveValues(NSDataView data, ArchiveValues& outer, const ArchiveFront& front)
        : list(data, &front), budget(outer.budget), keys(outer.keys), listNumber(keys.nextList()) {}
    ArchiveValues(const ArchiveValues&) = delete;
    ArchiveValues& operator=(const ArchiveValues&) = delete;

    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(Dictionary& dictionary, std::string_view key,
                                      std::string_view context) {
        return keys.find<likely>(list, listNumber, dictionary, key, context);
    }

    void spendObject(std::string_view key) {
        if (budget.objects == 0)
            fail(key, "the archive unfolds into too many objects");
        --budget.objects;
    }

    void spendBytes(std::uint64_t count, std::string_view key) {
        if (count > budget.bytes)
            fail(key, "the archive unfolds into too many bytes");
        budget.bytes -= count;
    }

    std::uint64_t uid(const Value& value, std::string_view key) {
        if (value.kind != Kind::uid)
            fail(key, "a reference to an object was expected");
        if (value.bits >= objects.count)
            fail(key, "a reference leads out of the archive");
        return value.bits;
    }

    /// The value that a reference leads to.
    template <Kind likely = Kind::dictionary>
    Value follow(const Value& reference, std::string_view key) {
        spendObject(key);
        return list.element<likely>(objects, uid(reference, key));
    }

    bool isNil(const Value& reference, std::string_view key) { return uid(reference, key) == 0; }

    /// ASCII where it stands; anything else is converted, and stays until the next.
    std::string_view plainText(const Value& value, std::string_view key) {
        if (value.kind == Kind::ascii) {
            spendBytes(value.count, key);
            const auto ascii = asciiText(value);
            if (!isAscii(ascii))
                fail(key, "a text is not ASCII");
            return ascii;
        }
        if (value.kind != Kind::utf16)
            fail(key, "a text was expected");
        spendBytes(std::uint64_t{value.count} * 2, key);
        auto utf8 = utf8FromUtf16BigEndian({value.bytes, std::size_t{value.count} * 2});
        if (!utf8)
            fail(key, "a text is not Unicode");
        converted = std::move(*utf8);
        return converted;
    }

    std::int64_t integer(const Value& value, std::string_view key) {
        if (value.kind != Kind::integer)
            fail(key, "an integer was expected");
        return static_cast<std::int64_t>(value.bits);
    }

    NSDataView plainBytes(const Value& value, std::string_view key) {
        if (value.kind != Kind::data)
            fail(key, "data was expected");
        return {value.bytes, std::size_t{value.count}};
    }
};

}  // namespace morvane::keyed
