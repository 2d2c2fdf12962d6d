// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/ArchiveFailure.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>

#include <array>
#include <cstdint>
#include <string_view>

/// For the row archive-decode-entry of the bench: how keys are looked up in dictionaries. A look-up
/// passes all keys, or one that stands there twice would not be noticed; so those of the last
/// dictionary are kept, and the next dictionary, which often has the same ones, is recognised by
/// its references to them.
namespace morvane::keyed {

/// What a look-up has found, if anything; an optional that fits into two registers.
class Found {
  public:
    Found() : value_{notFound, 0, {}} {}
    Found(const Value& value) : value_(value) {}
    explicit operator bool() const { return value_.kind != notFound; }
    const Value& operator*() const { return value_; }
    const Value* operator->() const { return &value_; }

  private:
    static constexpr auto notFound = static_cast<Kind>(0xff);
    Value value_;
};

struct Dictionary {
    explicit Dictionary(const Value& v) : value(v) {}

    Value value;
    /// The shape that is known to have its keys; 0 is none.
    std::uint64_t shape = 0;
};

/// The keys of a dictionary.
struct Shape {
    std::uint64_t number = 1;
    /// The references to the keys, which tell dictionaries of this shape.
    NSDataView references;
    /// As many as an object of ours has; those of a larger one are read each time.
    std::array<PropertyListReader::Text, 12> keys;
    /// How many there are, if no two are the same; otherwise 0.
    std::uint32_t distinctCount = 0;
    /// Where the next key is expected: objects ask for theirs in the order of their writing.
    std::uint32_t next = 0;
};

class KeyLookup {
  public:
    /// The value of `key`; empty if there is none. All dictionaries are of one list.
    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(const PropertyListReader& list, Dictionary& dictionary,
                                      std::string_view key, std::string_view context) {
        if (dictionary.shape != shape_.number && !takeShape(list, dictionary, context)) {
            return findIf<likely>(list, dictionary.value, context, [&](std::uint64_t i) {
                return list.text(dictionary.value, i) == key;
            });
        }
        if (shape_.next < shape_.distinctCount && shape_.keys[shape_.next] == key)
            return list.valueOf<likely>(dictionary.value, shape_.next++);
        return findIf<likely>(list, dictionary.value, context, [&](std::uint32_t i) {
            return shape_.keys[i] == key && (shape_.next = i + 1, true);
        });
    }

  private:
    static constexpr std::string_view keyTwice = "the key stands there twice";
    /// Every look-up passes all keys of an object, whose dictionaries may overlap in a hostile
    /// archive; no class has nearly as many.
    static constexpr std::uint64_t maxKeys = 64;

    /// False for a dictionary that is too large to have its keys kept.
    [[gnu::always_inline]] bool takeShape(const PropertyListReader& list, Dictionary& dictionary,
                                          std::string_view context) {
        const auto references = list.keyReferences(dictionary.value);
        if ((references.size() != shape_.references.size() ||
             !PropertyListReader::sameBytes(references.data(), shape_.references.data(),
                                            references.size())) &&
            !readShape(list, dictionary.value, context)) {
            return false;
        }
        shape_.next = 0;
        dictionary.shape = shape_.number;
        return true;
    }

    [[gnu::noinline]] bool readShape(const PropertyListReader& list, const Value& dictionary,
                                     std::string_view context) {
        const auto count = dictionary.count;
        if (count > maxKeys)
            fail(context, "an object has too many keys");
        // That of the class is mostly taken unseen, see ArchiveObjects::classOf().
        std::uint32_t classes = 0;
        const auto requireOneClass = [&] {
            if (classes > 1)
                fail(context, keyTwice);
        };
        if (count > shape_.keys.size()) {
            for (std::uint32_t i = 0; i < count; ++i)
                classes += list.text(dictionary, i) == "$class";
            requireOneClass();
            return false;
        }
        // Until all keys are read, no dictionary has these: a damaged one ends this halfway.
        shape_.references = {};
        shape_.distinctCount = 0;
        shape_.number = ++shapes_;
        bool isDistinct = true;
        for (std::uint32_t i = 0; i < count; ++i) {
            shape_.keys[i] = list.text(dictionary, i);
            classes += shape_.keys[i] == "$class";
            for (std::uint32_t k = 0; k < i; ++k)
                isDistinct = isDistinct && !(shape_.keys[k] == shape_.keys[i]);
        }
        requireOneClass();
        shape_.references = list.keyReferences(dictionary);
        shape_.distinctCount = isDistinct ? count : 0;
        return true;
    }

    template <Kind likely, class IsKey>
    [[gnu::noinline]] Found findIf(const PropertyListReader& list, const Value& dictionary,
                                   std::string_view context, IsKey&& isKey) {
        auto found = dictionary.count;
        for (std::uint32_t i = 0; i < dictionary.count; ++i) {
            if (!isKey(i))
                continue;
            if (found != dictionary.count)
                fail(context, keyTwice);
            found = i;
        }
        if (found == dictionary.count)
            return {};
        return list.valueOf<likely>(dictionary, found);
    }

    Shape shape_;
    std::uint64_t shapes_ = 1;
};

}  // namespace morvane::keyed
