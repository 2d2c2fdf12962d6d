// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/ArchiveFailure.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>
#include <MorvaneOperation/platform/archive/fast/SpareStates.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

/// For the row archive-decode-entry of the bench: how keys are looked up in dictionaries. A look-up
/// passes all keys, or one that stands there twice would not be noticed. So the keys of a few kinds
/// of dictionaries are kept, and a dictionary of such a kind is recognised by its references to
/// them. An archive that is nested in another mostly has its keys at the numbers that they have in
/// the one before it: there it is enough to see once that they are the same texts, and if both
/// start with the same front, that is known.
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

/// The keys that several dictionaries have in common.
struct Shape {
    /// Tells it from what stood in its place before.
    std::uint64_t number;
    /// The list whose texts were seen to be these keys.
    std::uint64_t list;
    /// What they are of, all of them; null if that is nothing which several lists have.
    const PropertyListFront* front;
    /// The references to the keys, which tell dictionaries of this shape.
    NSDataView references;
    std::uint32_t count;
    /// As `count`, if no two keys are the same; otherwise 0.
    std::uint32_t distinctCount;
    /// The shape that was wanted after it the last time.
    Shape* successor;
    /// As many as an object of ours has; those of a larger one are read each time.
    static constexpr std::size_t mostKeys = 12;
    std::array<PropertyListReader::Text, mostKeys> keys;
};

struct Dictionary {
    explicit Dictionary(const Value& v) : value(v) {}

    Value value;
    /// The shape that it is known to have, while its number is this one.
    const Shape* shape = nullptr;
    std::uint64_t shapeNumber = 0;
    /// Where the next key is expected: objects ask for theirs in the order of their writing.
    std::uint32_t next = 0;
};

/// Serves an archive and those that are nested in it.
class KeyLookup {
  public:
    /// Forgets all keys: there will be an archive of other memory.
    void clear() {
        kept_ = oldest_ = 0;
        last_ = expected_ = nullptr;
    }
    /// A number for a list whose dictionaries are to be looked up in.
    std::uint64_t nextList() { return ++lists_; }

    /// The value of `key`; empty if there is none. The dictionary is of `list`, whose number is
    /// `listNumber`.
    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(const PropertyListReader& list, std::uint64_t listNumber,
                                      Dictionary& dictionary, std::string_view key,
                                      std::string_view context) {
        if ((!dictionary.shape || dictionary.shape->number != dictionary.shapeNumber) &&
            !takeShape(list, listNumber, dictionary, context)) {
            return findIf<likely>(list, dictionary, context, [&](std::uint32_t i) {
                return list.text(dictionary.value, i) == key;
            });
        }
        const auto& shape = *dictionary.shape;
        if (dictionary.next < shape.distinctCount && shape.keys[dictionary.next] == key)
            return list.valueOf<likely>(dictionary.value, dictionary.next++);
        return findIf<likely>(list, dictionary, context,
                              [&](std::uint32_t i) { return shape.keys[i] == key; });
    }

  private:
    static constexpr std::string_view keyTwice = "the key stands there twice";
    /// Every look-up passes all keys of an object, whose dictionaries may overlap in a hostile
    /// archive; no class has nearly as many.
    static constexpr std::uint64_t maxKeys = 64;
    /// Bytes of a key that is kept and compared with others; no class has such long ones.
    static constexpr std::uint64_t longestKept = 64;

    /// False for a dictionary whose keys are not kept.
    [[gnu::always_inline]] bool takeShape(const PropertyListReader& list, std::uint64_t listNumber,
                                          Dictionary& dictionary, std::string_view context) {
        if (!expected_ || !isOf(*expected_, list, listNumber, dictionary.value))
            return searchShape(list, listNumber, dictionary, context);
        take(*expected_, dictionary);
        return true;
    }

    void take(Shape& shape, Dictionary& dictionary) {
        last_ = &shape;
        expected_ = shape.successor;
        dictionary.shape = &shape;
        dictionary.shapeNumber = shape.number;
        dictionary.next = 0;
    }

    [[gnu::always_inline]] static bool isOf(Shape& shape, const PropertyListReader& list,
                                            std::uint64_t listNumber, const Value& dictionary) {
        const auto references = list.keyReferences(dictionary);
        return dictionary.count == shape.count && references.size() == shape.references.size() &&
               PropertyListReader::sameBytes(references.data(), shape.references.data(),
                                             references.size()) &&
               (shape.list == listNumber || (shape.front && shape.front == list.front()) ||
                hasItsKeys(shape, list, listNumber, dictionary));
    }

    [[gnu::noinline]] static bool hasItsKeys(Shape& shape, const PropertyListReader& list,
                                             std::uint64_t listNumber, const Value& dictionary) {
        for (std::uint32_t i = 0; i < shape.count; ++i) {
            if (!list.hasText(dictionary, i, shape.keys[i]))
                return false;
        }
        shape.list = listNumber;
        return true;
    }

    [[gnu::noinline]] bool searchShape(const PropertyListReader& list, std::uint64_t listNumber,
                                       Dictionary& dictionary, std::string_view context) {
        std::uint32_t found = 0;
        while (found < kept_ && !isOf(shapes_[found], list, listNumber, dictionary.value))
            ++found;
        if (found == kept_ && !readShape(list, listNumber, dictionary.value, context, found))
            return false;
        if (last_)
            last_->successor = &shapes_[found];
        take(shapes_[found], dictionary);
        return true;
    }

    /// Keeps the keys of the dictionary, and tells at which place.
    bool readShape(const PropertyListReader& list, std::uint64_t listNumber,
                   const Value& dictionary, std::string_view context, std::uint32_t& place) {
        const auto count = dictionary.count;
        if (count > maxKeys)
            fail(context, "an object has too many keys");
        // That of the class is mostly taken unseen, see ArchiveObjects::classOf().
        std::uint32_t classes = 0;
        bool isKept = count <= Shape::mostKeys;
        bool isDistinct = true;
        bool isOfFront = list.startsWithFront();
        Shape shape;
        for (std::uint32_t i = 0; i < count; ++i) {
            const auto key = list.text(dictionary, i);
            classes += key == "$class";
            isKept = isKept && (key.size <= longestKept);
            if (!isKept)
                continue;
            shape.keys[i] = key;
            isOfFront = isOfFront && list.reference(dictionary, i) < list.front()->count();
            for (std::uint32_t k = 0; k < i; ++k)
                isDistinct = isDistinct && !(shape.keys[k] == key);
        }
        if (classes > 1)
            fail(context, keyTwice);
        if (!isKept)
            return false;
        shape.number = ++numbers_;
        shape.list = listNumber;
        shape.references = list.keyReferences(dictionary);
        shape.front = isOfFront ? list.front() : nullptr;
        shape.count = count;
        shape.distinctCount = isDistinct ? count : 0;
        place = kept_ < places ? kept_++ : oldest_++ % places;
        shapes_[place] = shape;
        shapes_[place].successor = &shapes_[place];
        return true;
    }

    template <Kind likely, class IsKey>
    [[gnu::noinline]] static Found findIf(const PropertyListReader& list, Dictionary& dictionary,
                                          std::string_view context, IsKey&& isKey) {
        const auto count = dictionary.value.count;
        auto found = count;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (!isKey(i))
                continue;
            if (found != count)
                fail(context, keyTwice);
            found = i;
        }
        if (found == count)
            return {};
        dictionary.next = found + 1;
        return list.valueOf<likely>(dictionary.value, found);
    }

    static constexpr std::uint32_t places = 16;
    // Not set before they are needed.
    std::array<Shape, places> shapes_;
    std::uint32_t kept_ = 0;
    Shape* last_ = nullptr;
    Shape* expected_ = nullptr;
    std::uint32_t oldest_ = 0;
    std::uint64_t numbers_ = 0;
    std::uint64_t lists_ = 0;
};

struct KeepKeys {
    void operator()(KeyLookup* keys) const {
        SpareStates<KeyLookup>::shared().put(std::unique_ptr<KeyLookup>(keys));
    }
};
/// In memory that an archive before has left, and that another one will use.
using KeptKeys = std::unique_ptr<KeyLookup, KeepKeys>;

inline KeptKeys takeKeys() {
    auto keys = SpareStates<KeyLookup>::shared().take();
    if (!keys)
        keys = std::make_unique<KeyLookup>();
    keys->clear();
    return KeptKeys(keys.release());
}

}  // namespace morvane::keyed
