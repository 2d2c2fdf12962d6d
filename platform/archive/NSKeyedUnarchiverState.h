#pragma once

#include <MorvaneOperation/platform/archive/ArchiveFront.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>
#include <MorvaneOperation/platform/archive/RebuiltObjects.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <utility>

/// One archive while it is being read: its objects, which of them were rebuilt, the classes that
/// were checked, and what the decode may still use. Everything in it came from anyone.
namespace morvane {
namespace keyed {

using Kind = PropertyListReader::Kind;
using Value = PropertyListReader::Value;

[[noreturn, gnu::cold, gnu::noinline]] inline void fail(std::string_view key,
                                                        std::string_view what) {
    throw NSArchiveFailure(key, std::string(what));
}

inline std::string_view asciiText(const Value& value) {
    return {reinterpret_cast<const char*>(value.bytes), std::size_t{value.count}};
}

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

/// The keys of a dictionary, which are read once: every look-up passes all of them, and the next
/// dictionary often has the same.
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

/// The property-list classes under the other names that archivers give them.
struct Alias {
    std::string_view name;
    const NSClass* c;
};
inline constexpr Alias aliases[] = {
    {"NSMutableArray", &NSArrayClass},
    {"NSMutableDictionary", &NSDictionaryClass},
    {"NSMutableString", &NSStringClass},
    {"NSMutableData", &NSDataClass},
};

inline bool contains(std::span<const NSClass* const> classes, const NSClass& c) {
    for (const auto* each : classes) {
        if (each == &c)
            return true;
    }
    return false;
}

}  // namespace keyed

struct NSKeyedUnarchiver::State {
    using Kind = keyed::Kind;
    using Value = keyed::Value;
    using Found = keyed::Found;
    using Dictionary = keyed::Dictionary;
    using Shape = keyed::Shape;
    using Classes = std::span<const NSClass* const>;

    /// A class dictionary that was checked.
    struct CheckedClass {
        std::uint64_t uid;
        const NSClass* c;
    };
    /// The class of the object that was read last, by the number of the reference to it.
    struct LastClass {
        std::uint64_t number;
        const NSClass* c = nullptr;
    };

    /// Every look-up passes all keys of an object, whose dictionaries may overlap in a hostile
    /// archive; no class has nearly as many.
    static constexpr std::uint64_t maxKeys = 64;
    static constexpr std::uint64_t largeArray = 1024;
    static constexpr std::string_view keyTwice = "the key stands there twice";
    /// So many objects cost the budget only when they are read.
    static constexpr std::uint64_t fewObjects = 8;

    PropertyListReader list;
    NSDecodingBudget ownBudget;
    NSDecodingBudget& budget;
    Value objects;
    std::string converted;
    std::optional<Dictionary> top;
    /// What keys are looked up in.
    Dictionary* current = nullptr;
    /// The object that is being rebuilt; null outside all.
    struct Within;
    const Within* innermost = nullptr;
    Shape shape;
    std::uint64_t shapes = 1;
    RebuiltObjects<Elements> rebuilt;
    /// Where the objects of large arrays are made, and how many such arrays are being read.
    struct CloseBlock {
        void operator()(NSObjectBlock* filled) const { filled->close(); }
    };
    std::unique_ptr<NSObjectBlock, CloseBlock> block;
    std::size_t largeArrays = 0;
    std::array<CheckedClass, 8> checkedClasses;
    std::size_t checkedClassCount = 0;
    LastClass lastClass;

    State(NSDataView data, const NSDecodingBudget& most)
        : State(data, NSDecodingBudget::forArchiveOfSize(data.size(), most), nullptr) {}
    State(NSDataView data, State& outer) : State(data, {}, &outer.budget) {}

    /// The value of `key` in `current`; empty if there is none.
    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(std::string_view key) {
        return find<likely>(*current, key, key);
    }

    template <Kind likely = Kind::uid>
    [[gnu::always_inline]] Found find(Dictionary& dictionary, std::string_view key,
                                      std::string_view context) {
        if (dictionary.shape != shape.number && !takeShape(dictionary, context)) {
            return findIf<likely>(dictionary.value, context, [&](std::uint64_t i) {
                return list.text(dictionary.value, i) == key;
            });
        }
        if (shape.next < shape.distinctCount && shape.keys[shape.next] == key)
            return list.valueOf<likely>(dictionary.value, shape.next++);
        return findIf<likely>(dictionary.value, context, [&](std::uint32_t i) {
            return shape.keys[i] == key && (shape.next = i + 1, true);
        });
    }

    /// False for a dictionary that is too large to have its keys kept.
    [[gnu::always_inline]] bool takeShape(Dictionary& dictionary, std::string_view context) {
        const auto references = list.keyReferences(dictionary.value);
        if ((references.size() != shape.references.size() ||
             !PropertyListReader::sameBytes(references.data(), shape.references.data(),
                                            references.size())) &&
            !readShape(dictionary.value, context)) {
            return false;
        }
        shape.next = 0;
        dictionary.shape = shape.number;
        return true;
    }

    [[gnu::noinline]] bool readShape(const Value& dictionary, std::string_view context) {
        const auto count = dictionary.count;
        if (count > maxKeys)
            keyed::fail(context, "an object has too many keys");
        // Which classOf() mostly takes without looking for another.
        std::uint32_t classes = 0;
        for (std::uint32_t i = 0; i < count; ++i)
            classes += list.text(dictionary, i) == "$class";
        if (classes > 1)
            keyed::fail(context, keyTwice);
        if (count > shape.keys.size())
            return false;
        shape.distinctCount = count;
        for (std::uint32_t i = 0; i < count; ++i) {
            shape.keys[i] = list.text(dictionary, i);
            for (std::uint32_t k = 0; k < i; ++k) {
                if (shape.keys[k] == shape.keys[i])
                    shape.distinctCount = 0;
            }
        }
        shape.references = list.keyReferences(dictionary);
        shape.number = ++shapes;
        return true;
    }

    template <Kind likely, class IsKey>
    [[gnu::noinline]] Found findIf(const Value& dictionary, std::string_view context,
                                   IsKey&& isKey) {
        auto found = dictionary.count;
        for (std::uint32_t i = 0; i < dictionary.count; ++i) {
            if (!isKey(i))
                continue;
            if (found != dictionary.count)
                keyed::fail(context, keyTwice);
            found = i;
        }
        if (found == dictionary.count)
            return {};
        return list.valueOf<likely>(dictionary, found);
    }

    void spendObject(std::string_view key) {
        if (budget.objects == 0)
            keyed::fail(key, "the archive unfolds into too many objects");
        --budget.objects;
    }

    void spendBytes(std::uint64_t count, std::string_view key) {
        if (count > budget.bytes)
            keyed::fail(key, "the archive unfolds into too many bytes");
        budget.bytes -= count;
    }

    std::uint64_t uid(const Value& value, std::string_view key) {
        if (value.kind != Kind::uid)
            keyed::fail(key, "a reference to an object was expected");
        if (value.bits >= objects.count)
            keyed::fail(key, "a reference leads out of the archive");
        return value.bits;
    }

    /// The value that a reference leads to.
    template <Kind likely = Kind::dictionary>
    Value follow(const Value& reference, std::string_view key) {
        spendObject(key);
        return list.element<likely>(objects, uid(reference, key));
    }

    bool isNil(const Value& reference, std::string_view key) { return uid(reference, key) == 0; }

    /// The one of `classes` that the object `dictionary` is of; refuses every other.
    [[gnu::always_inline]] const NSClass& classOf(Dictionary& dictionary, Classes classes,
                                                  std::string_view key) {
        const auto& value = dictionary.value;
        if (value.kind != Kind::dictionary)
            keyed::fail(key, "an object was expected");
        // Written last, and mostly the same as that of the object before.
        if (list.startsWithFront() && value.count != 0 &&
            list.reference(value, value.count - 1) == classKey) {
            const auto number = list.reference(value, std::uint64_t{value.count} * 2 - 1);
            if (!lastClass.c || lastClass.number != number ||
                !keyed::contains(classes, *lastClass.c)) {
                lastClass.c = &referredClass(list.value<Kind::uid>(number), classes, key);
                lastClass.number = number;
            }
            return *lastClass.c;
        }
        const auto reference = find(dictionary, "$class", key);
        if (!reference)
            keyed::fail(key, "an object has no class");
        return referredClass(*reference, classes, key);
    }

    const NSClass& referredClass(const Value& reference, Classes classes, std::string_view key) {
        const auto classUid = uid(reference, key);
        for (std::size_t i = 0; i < checkedClassCount; ++i) {
            if (checkedClasses[i].uid != classUid)
                continue;
            if (!keyed::contains(classes, *checkedClasses[i].c))
                refuse(checkedClasses[i].c->name, key);
            return *checkedClasses[i].c;
        }
        const auto& c = checkClass(list.element<Kind::dictionary>(objects, classUid), classes, key);
        if (checkedClassCount < checkedClasses.size()) {
            checkedClasses[checkedClassCount++] = {classUid, &c};
        }
        return c;
    }

    [[noreturn]] static void refuse(std::string_view name, std::string_view key) {
        std::string shown;
        for (const char ch : name.substr(0, 64))
            shown += ch >= ' ' && ch <= '~' ? ch : '?';
        keyed::fail(key, "an object of class \"" + shown + "\" is not allowed there");
    }

    const NSClass& checkClass(const Value& value, Classes classes, std::string_view key) {
        if (value.kind != Kind::dictionary)
            keyed::fail(key, "a class is malformed");
        Found name;
        Found ancestry;
        if (list.hasFrontKeys(value, classNameKey, classesKey)) {
            name = list.valueOf<Kind::ascii>(value, 0);
            ancestry = list.valueOf<Kind::array>(value, 1);
        } else {
            Dictionary description(value);
            name = find<Kind::ascii>(description, "$classname", key);
            ancestry = find<Kind::array>(description, "$classes", key);
        }
        if (!name || name->kind != Kind::ascii || !ancestry || ancestry->kind != Kind::array) {
            keyed::fail(key, "a class is malformed");
        }
        std::uint64_t next = 0;
        const auto expect = [&](std::string_view ancestor) {
            if (next >= ancestry->count || !(list.text(*ancestry, next++) == ancestor)) {
                keyed::fail(key, "a class claims an ancestry that is not its own");
            }
        };
        const NSClass* c = nullptr;
        for (const auto* allowed : classes) {
            if (allowed->name == keyed::asciiText(*name))
                c = allowed;
        }
        if (!c) {
            for (const auto& alias : keyed::aliases) {
                if (alias.name != keyed::asciiText(*name) || !keyed::contains(classes, *alias.c))
                    continue;
                c = alias.c;
                expect(alias.name);
            }
        }
        if (!c)
            refuse(keyed::asciiText(*name), key);
        for (const auto* k = c; k; k = k->superclass) {
            if (list.startsWithFront() && !k->superclass && next < ancestry->count &&
                list.reference(*ancestry, next) == rootClassName) {
                ++next;
                continue;
            }
            expect(k->name);
        }
        if (next != ancestry->count)
            keyed::fail(key, "a class claims an ancestry that is not its own");
        return *c;
    }

    /// What a text or data has in it that was written as an object of class `c`.
    Value contents(const Value& value, const NSClass& c, std::string_view member,
                   std::string_view key) {
        Dictionary object(value);
        const NSClass* const classes[] = {&c};
        classOf(object, classes, key);
        const auto inner = find<Kind::ascii>(object, member, key);
        return inner ? *inner : Value();
    }

    std::string_view text(const Value& value, std::string_view key) {
        return value.kind == Kind::dictionary
                   ? plainText(contents(value, NSStringClass, "NS.string", key), key)
                   : plainText(value, key);
    }

    /// ASCII where it stands; anything else is converted, and stays until the next.
    std::string_view plainText(const Value& value, std::string_view key) {
        if (value.kind == Kind::ascii) {
            spendBytes(value.count, key);
            const auto ascii = keyed::asciiText(value);
            // Without a branch for each character.
            unsigned all = 0;
            for (const char c : ascii)
                all |= static_cast<unsigned char>(c);
            if (all >= 0x80)
                keyed::fail(key, "a text is not ASCII");
            return ascii;
        }
        if (value.kind != Kind::utf16)
            keyed::fail(key, "a text was expected");
        spendBytes(std::uint64_t{value.count} * 2, key);
        auto utf8 = utf8FromUtf16BigEndian({value.bytes, std::size_t{value.count} * 2});
        if (!utf8)
            keyed::fail(key, "a text is not Unicode");
        converted = std::move(*utf8);
        return converted;
    }

    std::int64_t integer(const Value& value, std::string_view key) {
        if (value.kind != Kind::integer)
            keyed::fail(key, "an integer was expected");
        return static_cast<std::int64_t>(value.bits);
    }

    NSDataView bytes(const Value& value, std::string_view key) {
        return value.kind == Kind::dictionary
                   ? plainBytes(contents(value, NSDataClass, "NS.data", key), key)
                   : plainBytes(value, key);
    }

    NSDataView plainBytes(const Value& value, std::string_view key) {
        if (value.kind != Kind::data)
            keyed::fail(key, "data was expected");
        return {value.bytes, std::size_t{value.count}};
    }

    NSURL url(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClass* const classes[] = {&NSURLClass};
        classOf(object, classes, key);
        const auto base = find(object, "NS.base", key);
        if (base && !isNil(*base, key))
            keyed::fail(key, "a URL is relative to another");
        const auto relative = find(object, "NS.relative", key);
        if (!relative)
            keyed::fail(key, "a URL has no text");
        auto result = NSURL::URLWithString(text(follow<Kind::ascii>(*relative, key), key));
        if (!result)
            keyed::fail(key, "a URL is malformed");
        return std::move(*result);
    }

    /// The elements ("NS.objects") of an array or dictionary object, as references.
    Value elements(Dictionary& object, std::string_view member, std::string_view key) {
        const auto values = find<Kind::array>(object, member, key);
        if (!values || values->kind != Kind::array)
            keyed::fail(key, "an array is malformed");
        // Checked before room is made for them.
        if (values->count > budget.objects)
            keyed::fail(key, "the archive unfolds into too many objects");
        return *values;
    }

    Value array(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClass* const classes[] = {&NSArrayClass};
        classOf(object, classes, key);
        return elements(object, "NS.objects", key);
    }

    struct Depth {
        NSDecodingBudget& budget;
        Depth(NSDecodingBudget& b, std::string_view key) : budget(b) {
            if (budget.depth == 0)
                keyed::fail(key, "objects are nested too deeply");
            --budget.depth;
        }
        ~Depth() { ++budget.depth; }
    };

    /// While it exists, objects are made in blocks if the array is large.
    struct LargeArray {
        State& state;
        const bool isLarge;
        LargeArray(State& s, std::uint64_t count) : state(s), isLarge(count >= largeArray) {
            state.largeArrays += isLarge;
        }
        ~LargeArray() { state.largeArrays -= isLarge; }
    };

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

    /// While it exists, the objects of a large array that is all that the archive holds are lent to
    /// `elements`: nothing that is read later leads to them.
    struct Lending {
        State& state;

        Lending(State& s, const Elements& elements, const Value& array) : state(s) {
            if (array.count >= largeArray && array.count <= s.rebuilt.mostLent && !s.innermost &&
                s.topHoldsOne()) {
                state.rebuilt.lendTo(&elements);
            }
        }
        ~Lending() {
            if (!state.innermost)
                state.rebuilt.lendTo(nullptr);
        }
        Lending(const Lending&) = delete;
        Lending& operator=(const Lending&) = delete;
    };

    bool topHoldsOne() const {
        std::uint64_t leading = 0;
        for (std::uint64_t i = 0; i < top->value.count; ++i) {
            const auto value = list.valueOf<Kind::uid>(top->value, i);
            leading += value.kind == Kind::uid && value.bits != 0;
        }
        return leading == 1;
    }

    NSErrorRef error(const Value& reference, std::string_view key);
    NSErrorValue errorValue(const Value& reference, std::string_view key);

  private:
    State(NSDataView data, NSDecodingBudget own, NSDecodingBudget* outer)
        : list(data, &archiveFront()), ownBudget(own), budget(outer ? *outer : ownBudget) {
        spendBytes(data.size(), "root");
        Dictionary root(list.value<Kind::dictionary>(list.root()));
        if (root.value.kind != Kind::dictionary)
            keyed::fail("root", "it is not a keyed archive");
        Found version;
        Found archiver;
        Found topValue;
        Found objectsValue;
        if (list.hasFrontKeys(root.value, versionKey, archiverKey, topKey, objectsKey)) {
            version = list.valueOf<Kind::integer>(root.value, 0);
            archiver = list.valueOf<Kind::ascii>(root.value, 1);
            topValue = list.valueOf<Kind::dictionary>(root.value, 2);
            objectsValue = list.valueOf<Kind::array>(root.value, 3);
        } else {
            version = find<Kind::integer>(root, "$version", "$version");
            archiver = find<Kind::ascii>(root, "$archiver", "$archiver");
            topValue = find<Kind::dictionary>(root, "$top", "$top");
            objectsValue = find<Kind::array>(root, "$objects", "$objects");
        }
        if (!version || version->kind != Kind::integer || version->bits != 100000 || !archiver ||
            archiver->kind != Kind::ascii || keyed::asciiText(*archiver) != "NSKeyedArchiver" ||
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
