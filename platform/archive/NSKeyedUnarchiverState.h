// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/ArchiveObjects.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/archive/fast/ObjectBlock.h>
#include <MorvaneOperation/platform/archive/fast/RebuiltObjects.h>

#include <optional>
#include <string_view>
#include <utility>

/// One archive while it is being read: which of its objects were rebuilt, and which is being
/// rebuilt now.
namespace morvane {

struct NSKeyedUnarchiver::State : keyed::ArchiveObjects {
    using Kind = keyed::Kind;
    using Value = keyed::Value;
    using Found = keyed::Found;
    using Dictionary = keyed::Dictionary;
    using Depth = keyed::Depth;
    using Classes = keyed::Classes;

    /// So many objects cost the budget only when they are read.
    static constexpr std::uint64_t fewObjects = 8;
    /// An array of so many is large.
    static constexpr std::uint64_t manyElements = 1024;

    std::optional<Dictionary> top;
    /// What keys are looked up in.
    Dictionary* current = nullptr;
    /// The object that is being rebuilt; null outside all.
    struct Within;
    const Within* innermost = nullptr;
    RebuiltObjects<Elements> rebuilt;
    /// Where the objects of large arrays are made, how many such places there were, and how many
    /// such arrays are being read.
    ObjectBlock::Filled block;
    std::size_t blocks = 0;
    std::size_t largeArrays = 0;

    State(NSDataView data, const NSDecodingBudget& most)
        : ArchiveObjects(data, NSDecodingBudget::forArchiveOfSize(data.size(), most)) {
        open(data.size());
    }
    State(NSDataView data, State& outer, const ArchiveFront& front)
        : ArchiveObjects(data, outer, front) {
        open(data.size());
    }

    using ArchiveObjects::find;
    /// The value of `key` in `current`; empty if there is none.
    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(std::string_view key) {
        return find<likely>(*current, key, key);
    }

    /// While it exists, the object `uid` is being rebuilt, and keys are looked up in its
    /// dictionary.
    struct Within {
        State& state;
        const std::uint64_t uid;
        /// That led to it.
        const std::string_view key;
        Dictionary* const outerDictionary;
        const Within* const outer;

        Within(State& s, Dictionary& dictionary, std::uint64_t u, std::string_view k)
            : state(s),
              uid(u),
              key(k),
              outerDictionary(std::exchange(s.current, &dictionary)),
              outer(std::exchange(s.innermost, this)) {}
        ~Within() {
            state.current = outerDictionary;
            state.innermost = outer;
        }
    };

    void requireNotWithin(std::uint64_t uid, std::string_view key) const {
        for (const auto* within = innermost; within; within = within->outer) {
            if (within->uid == uid)
                keyed::fail(key, "an object holds itself");
        }
    }

    struct LargeArray;
    struct OneByOne;
    struct Lending;
    class PlainElements;

    NSErrorRef error(const Value& reference, std::string_view key);
    NSErrorValue errorValue(const Value& reference, std::string_view key);

  private:
    void open(std::size_t size) {
        spendBytes(size, "root");
        Dictionary root(list.value<Kind::dictionary>(list.root()));
        if (root.value.kind != Kind::dictionary)
            keyed::fail("root", "it is not a keyed archive");
        Found version;
        bool isOurs = false;
        const auto isName = [](const Value& archiver) {
            return archiver.kind == Kind::ascii && keyed::asciiText(archiver) == "NSKeyedArchiver";
        };
        Found topValue;
        Found objectsValue;
        if (list.hasFrontKeys(root.value, versionKey, archiverKey, topKey, objectsKey)) {
            version = list.valueOf<Kind::integer>(root.value, 0);
            isOurs = list.valueReference(root.value, 1) == archiverName ||
                     isName(list.valueOf<Kind::ascii>(root.value, 1));
            topValue = list.valueOf<Kind::dictionary>(root.value, 2);
            objectsValue = list.valueOf<Kind::array>(root.value, 3);
        } else {
            version = find<Kind::integer>(root, "$version", "$version");
            const auto archiver = find<Kind::ascii>(root, "$archiver", "$archiver");
            isOurs = archiver && isName(*archiver);
            topValue = find<Kind::dictionary>(root, "$top", "$top");
            objectsValue = find<Kind::array>(root, "$objects", "$objects");
        }
        if (!version || version->kind != Kind::integer || version->bits != 100000 || !isOurs ||
            !topValue || topValue->kind != Kind::dictionary || !objectsValue ||
            objectsValue->kind != Kind::array || objectsValue->count == 0) {
            keyed::fail("root", "it is not a keyed archive");
        }
        current = &top.emplace(*topValue);
        objects = *objectsValue;
        if (objects.count > fewObjects) {
            if (objects.count > budget.objects) {
                keyed::fail("$objects", "the archive unfolds into too many objects");
            }
            budget.objects -= objects.count;
            // Each object is reached by a UID of its own: what only repeats one gets no room.
            if (objects.count > list.valueCount())
                keyed::fail("$objects", "there are more objects than values");
        }
        rebuilt.resize(static_cast<std::size_t>(objects.count));
    }
};

}  // namespace morvane

#include <MorvaneOperation/platform/archive/fast/LargeArray.h>
#include <MorvaneOperation/platform/archive/fast/PlainElements.h>
