#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/archive/PropertyListReader.h>
#include <MorvaneOperation/platform/archive/Unicode.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

namespace morvane {
namespace {

using Kind = PropertyListReader::Kind;
using Value = PropertyListReader::Value;

[[noreturn]] void fail(std::string_view key, const std::string& what) {
    throw NSArchiveFailure(key, what);
}

std::string_view asciiText(const Value& value) {
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

/// A dictionary whose keys are read once: every look-up passes all of them.
struct Dictionary {
    explicit Dictionary(const Value& v) : value(v) {}

    Value value;
    bool keysAreRead = false;
    /// As many as an object of ours has; those of a larger one are read each time.
    std::array<PropertyListReader::Text, 12> keys;
};

/// The property-list classes under the other names that archivers give them.
struct Alias {
    std::string_view name;
    const NSClass* c;
};
constexpr Alias aliases[] = {
    {"NSMutableArray", &NSArrayClass},
    {"NSMutableDictionary", &NSDictionaryClass},
    {"NSMutableString", &NSStringClass},
    {"NSMutableData", &NSDataClass},
};

bool contains(const NSClassSet& classes, const NSClass& c) {
    return std::find(classes.begin(), classes.end(), &c) != classes.end();
}

}  // namespace

NSArchiveFailure::NSArchiveFailure(std::string_view key, const std::string& what)
    : what_("The archive cannot be read: for key \"" + std::string(key) + "\", " + what + ".") {
    error_ = NSError::errorWithDomain(NSCocoaErrorDomain, NSCoderReadCorruptError,
                                      {{NSLocalizedDescriptionKey, what_}});
}

NSArchiveFailure::~NSArchiveFailure() = default;

NSDecodingBudget NSDecodingBudget::forArchiveOfSize(std::size_t size) {
    // An archive's bytes are counted again at each level that it is nested below; every value takes
    // at least a byte, and some are read twice.
    NSDecodingBudget budget;
    budget.bytes = std::uint64_t{size} * budget.depth + 4096;
    budget.objects = std::uint64_t{size} * 2 + 1024;
    return budget;
}

struct NSKeyedUnarchiver::State {
    /// What became of an object of the archive.
    struct Slot {
        enum class Progress : std::uint8_t { untouched, beingDecoded, decoded };
        Progress progress = Progress::untouched;
        std::shared_ptr<NSObject> object;
    };
    /// A class dictionary that was checked.
    struct CheckedClass {
        std::uint64_t uid;
        const NSClass* c;
    };

    /// Every look-up passes all keys of an object, whose dictionaries may overlap in a hostile
    /// archive; no class has nearly as many.
    static constexpr std::uint64_t maxKeys = 64;

    PropertyListReader list;
    NSDecodingBudget ownBudget;
    NSDecodingBudget& budget;
    Value objects;
    std::optional<Dictionary> top;
    /// What keys are looked up in.
    Dictionary* current = nullptr;
    std::array<Slot, 12> fewSlots;
    std::vector<Slot> manySlots;
    std::array<CheckedClass, 8> checkedClasses{};
    std::size_t checkedClassCount = 0;

    explicit State(NSDataView data)
        : State(data, NSDecodingBudget::forArchiveOfSize(data.size()), nullptr) {}
    State(NSDataView data, NSDecodingBudget& outer) : State(data, {}, &outer) {}

    Slot& slot(std::uint64_t uid) { return manySlots.empty() ? fewSlots[uid] : manySlots[uid]; }

    /// The value of `key` in `current`; empty if there is none.
    Found find(std::string_view key) { return find(*current, key, key); }

    Found find(Dictionary& dictionary, std::string_view key, std::string_view context) {
        const auto count = dictionary.value.count;
        if (count > maxKeys)
            fail(context, "an object has too many keys");
        if (count > dictionary.keys.size()) {
            return find(dictionary.value, context,
                        [&](std::uint64_t i) { return list.text(dictionary.value, i) == key; });
        }
        if (!dictionary.keysAreRead) {
            for (std::uint64_t i = 0; i < count; ++i)
                dictionary.keys[i] = list.text(dictionary.value, i);
            dictionary.keysAreRead = true;
        }
        return find(dictionary.value, context,
                    [&](std::uint32_t i) { return dictionary.keys[i] == key; });
    }

    template <class IsKey>
    Found find(const Value& dictionary, std::string_view context, IsKey&& isKey) {
        auto found = dictionary.count;
        for (std::uint32_t i = 0; i < dictionary.count; ++i) {
            if (!isKey(i))
                continue;
            if (found != dictionary.count)
                fail(context, "the key stands there twice");
            found = i;
        }
        if (found == dictionary.count)
            return {};
        return list.valueOf(dictionary, found);
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
    Value follow(const Value& reference, std::string_view key) {
        spendObject(key);
        return list.element(objects, uid(reference, key));
    }

    bool isNil(const Value& reference, std::string_view key) { return uid(reference, key) == 0; }

    /// The one of `classes` that the object `dictionary` is of; refuses every other.
    const NSClass& classOf(Dictionary& dictionary, const NSClassSet& classes,
                           std::string_view key) {
        if (dictionary.value.kind != Kind::dictionary)
            fail(key, "an object was expected");
        const auto reference = find(dictionary, "$class", key);
        if (!reference)
            fail(key, "an object has no class");
        const auto classUid = uid(*reference, key);
        for (std::size_t i = 0; i < checkedClassCount; ++i) {
            if (checkedClasses[i].uid != classUid)
                continue;
            if (!contains(classes, *checkedClasses[i].c))
                refuse(checkedClasses[i].c->name, key);
            return *checkedClasses[i].c;
        }
        const auto& c = checkClass(list.element(objects, classUid), classes, key);
        if (checkedClassCount < checkedClasses.size()) {
            checkedClasses[checkedClassCount++] = {classUid, &c};
        }
        return c;
    }

    [[noreturn]] static void refuse(std::string_view name, std::string_view key) {
        std::string shown;
        for (const char ch : name.substr(0, 64))
            shown += ch >= ' ' && ch <= '~' ? ch : '?';
        fail(key, "an object of class \"" + shown + "\" is not allowed there");
    }

    const NSClass& checkClass(const Value& value, const NSClassSet& classes, std::string_view key) {
        if (value.kind != Kind::dictionary)
            fail(key, "a class is malformed");
        Found name;
        Found ancestry;
        // As archivers write it; otherwise it is searched.
        if (value.count == 2 && list.text(value, 0) == "$classname" &&
            list.text(value, 1) == "$classes") {
            name = list.valueOf(value, 0);
            ancestry = list.valueOf(value, 1);
        } else {
            Dictionary description(value);
            name = find(description, "$classname", key);
            ancestry = find(description, "$classes", key);
        }
        if (!name || name->kind != Kind::ascii || !ancestry || ancestry->kind != Kind::array) {
            fail(key, "a class is malformed");
        }
        std::uint64_t next = 0;
        const auto expect = [&](std::string_view ancestor) {
            if (next >= ancestry->count || !(list.text(*ancestry, next++) == ancestor)) {
                fail(key, "a class claims an ancestry that is not its own");
            }
        };
        const NSClass* c = nullptr;
        for (const auto* allowed : classes) {
            if (allowed->name == asciiText(*name))
                c = allowed;
        }
        if (!c) {
            for (const auto& alias : aliases) {
                if (alias.name != asciiText(*name) || !contains(classes, *alias.c))
                    continue;
                c = alias.c;
                expect(alias.name);
            }
        }
        if (!c)
            refuse(asciiText(*name), key);
        for (const auto* k = c; k; k = k->superclass)
            expect(k->name);
        if (next != ancestry->count)
            fail(key, "a class claims an ancestry that is not its own");
        return *c;
    }

    std::string text(const Value& value, std::string_view key) {
        if (value.kind == Kind::ascii) {
            spendBytes(value.count, key);
            const auto ascii = asciiText(value);
            for (const char c : ascii) {
                if (static_cast<unsigned char>(c) >= 0x80)
                    fail(key, "a text is not ASCII");
            }
            return std::string(ascii);
        }
        if (value.kind != Kind::utf16)
            fail(key, "a text was expected");
        spendBytes(std::uint64_t{value.count} * 2, key);
        auto utf8 = utf8FromUtf16BigEndian({value.bytes, std::size_t{value.count} * 2});
        if (!utf8)
            fail(key, "a text is not Unicode");
        return std::move(*utf8);
    }

    std::int64_t integer(const Value& value, std::string_view key) {
        if (value.kind != Kind::integer)
            fail(key, "an integer was expected");
        return static_cast<std::int64_t>(value.bits);
    }

    NSDataView bytes(const Value& value, std::string_view key) {
        if (value.kind != Kind::data)
            fail(key, "data was expected");
        return {value.bytes, std::size_t{value.count}};
    }

    NSURL url(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClassSet classes{&NSURLClass};
        classOf(object, classes, key);
        const auto base = find(object, "NS.base", key);
        if (base && !isNil(*base, key))
            fail(key, "a URL is relative to another");
        const auto relative = find(object, "NS.relative", key);
        if (!relative)
            fail(key, "a URL has no text");
        auto result = NSURL::URLWithString(text(follow(*relative, key), key));
        if (!result)
            fail(key, "a URL is malformed");
        return std::move(*result);
    }

    /// The elements ("NS.objects") of an array or dictionary object, as references.
    Value elements(Dictionary& object, std::string_view member, std::string_view key) {
        const auto values = find(object, member, key);
        if (!values || values->kind != Kind::array)
            fail(key, "an array is malformed");
        // Checked before room is made for them.
        if (values->count > budget.objects)
            fail(key, "the archive unfolds into too many objects");
        return *values;
    }

    Value array(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClassSet classes{&NSArrayClass};
        classOf(object, classes, key);
        return elements(object, "NS.objects", key);
    }

    struct Depth {
        NSDecodingBudget& budget;
        Depth(NSDecodingBudget& b, std::string_view key) : budget(b) {
            if (budget.depth == 0)
                fail(key, "objects are nested too deeply");
            --budget.depth;
        }
        ~Depth() { ++budget.depth; }
    };

    /// While it exists, keys are looked up in `dictionary`.
    struct Within {
        State& state;
        Dictionary* const outer;
        Within(State& s, Dictionary& dictionary)
            : state(s), outer(std::exchange(s.current, &dictionary)) {}
        ~Within() { state.current = outer; }
    };

    NSErrorRef error(const Value& reference, std::string_view key) {
        if (isNil(reference, key))
            return nullptr;
        const Depth depth(budget, key);
        Dictionary object(follow(reference, key));
        static const NSClassSet classes{&NSError::classObject()};
        classOf(object, classes, key);
        const auto domain = find(object, "NSDomain", key);
        const auto code = find(object, "NSCode", key);
        if (!domain || !code)
            fail(key, "an error has no domain or no code");
        NSErrorUserInfo userInfo;
        const auto info = find(object, "NSUserInfo", key);
        if (info && !isNil(*info, key)) {
            Dictionary dictionary(follow(*info, key));
            static const NSClassSet dictionaryClasses{&NSDictionaryClass};
            classOf(dictionary, dictionaryClasses, key);
            const auto names = elements(dictionary, "NS.keys", key);
            const auto values = elements(dictionary, "NS.objects", key);
            if (names.count != values.count)
                fail(key, "a dictionary is malformed");
            for (std::uint64_t i = 0; i < names.count; ++i) {
                auto name = text(follow(list.element(names, i), key), key);
                if (!userInfo.emplace(std::move(name), errorValue(list.element(values, i), key))
                         .second) {
                    fail(key, "a dictionary has a key twice");
                }
            }
        }
        return NSError::errorWithDomain(text(follow(*domain, key), key), integer(*code, key),
                                        std::move(userInfo));
    }

    NSErrorValue errorValue(const Value& reference, std::string_view key) {
        if (isNil(reference, key))
            return NSErrorRef();
        const auto value = follow(reference, key);
        if (value.kind == Kind::integer)
            return integer(value, key);
        if (value.kind != Kind::dictionary)
            return text(value, key);
        Dictionary object(value);
        static const NSClassSet classes{&NSURLClass, &NSError::classObject()};
        if (&classOf(object, classes, key) == &NSURLClass)
            return url(reference, key);
        return error(reference, key);
    }

  private:
    State(NSDataView data, NSDecodingBudget own, NSDecodingBudget* outer)
        : list(data), ownBudget(own), budget(outer ? *outer : ownBudget) {
        spendBytes(data.size(), "root");
        Dictionary root(list.value(list.root()));
        if (root.value.kind != Kind::dictionary)
            fail("root", "it is not a keyed archive");
        const auto version = find(root, "$version", "$version");
        const auto archiver = find(root, "$archiver", "$archiver");
        const auto topValue = find(root, "$top", "$top");
        const auto objectsValue = find(root, "$objects", "$objects");
        if (!version || version->kind != Kind::integer || version->bits != 100000 || !archiver ||
            archiver->kind != Kind::ascii || asciiText(*archiver) != "NSKeyedArchiver" ||
            !topValue || topValue->kind != Kind::dictionary || !objectsValue ||
            objectsValue->kind != Kind::array || objectsValue->count == 0) {
            fail("root", "it is not a keyed archive");
        }
        current = &top.emplace(*topValue);
        objects = *objectsValue;
        if (objects.count > fewSlots.size()) {
            if (objects.count > budget.objects) {
                fail("$objects", "the archive unfolds into too many objects");
            }
            budget.objects -= objects.count;
            manySlots.resize(static_cast<std::size_t>(objects.count));
        }
    }
};

namespace {

/// Damage below the keyed layer, told in terms of the key that was being read.
template <class Read>
auto reading(std::string_view key, Read&& read) {
    try {
        return read();
    } catch (const PropertyListDamage& damage) {
        fail(key, damage.what());
    }
}

}  // namespace

NSKeyedUnarchiver::NSKeyedUnarchiver(NSDataView data)
    : state_(reading("root", [&] { return std::make_unique<State>(data); })) {}

NSKeyedUnarchiver::NSKeyedUnarchiver(std::unique_ptr<State> state) : state_(std::move(state)) {}

NSKeyedUnarchiver::~NSKeyedUnarchiver() = default;

std::shared_ptr<NSObject> NSKeyedUnarchiver::unarchivedObjectOfClasses(const NSClassSet& classes,
                                                                       NSDataView data,
                                                                       NSErrorRef* error) {
    NSErrorRef failure;
    try {
        NSKeyedUnarchiver unarchiver(data);
        auto object = unarchiver.decodeObject("root", classes);
        if (error)
            error->reset();
        return object;
    } catch (const NSArchiveFailure& e) {
        failure = e.error();
    }
    if (error)
        *error = failure;
    return nullptr;
}

bool NSKeyedUnarchiver::containsValueForKey(std::string_view key) {
    return reading(key, [&] { return static_cast<bool>(state_->find(key)); });
}

bool NSKeyedUnarchiver::decodeBool(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find(key);
        if (!value)
            return false;
        if (value->kind != Kind::boolean)
            fail(key, "a boolean was expected");
        return value->bits != 0;
    });
}

std::int32_t NSKeyedUnarchiver::decodeInt32(std::string_view key) {
    const auto value = decodeInt64(key);
    if (value < std::numeric_limits<std::int32_t>::min() ||
        value > std::numeric_limits<std::int32_t>::max()) {
        fail(key, "an integer does not fit its field");
    }
    return static_cast<std::int32_t>(value);
}

std::int64_t NSKeyedUnarchiver::decodeInt64(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find(key);
        return value ? state_->integer(*value, key) : 0;
    });
}

double NSKeyedUnarchiver::decodeDouble(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find(key);
        if (!value)
            return 0.0;
        if (value->kind != Kind::real)
            fail(key, "a real number was expected");
        return std::bit_cast<double>(value->bits);
    });
}

std::optional<std::string> NSKeyedUnarchiver::decodeString(std::string_view key) {
    return reading(key, [&]() -> std::optional<std::string> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        return state_->text(state_->follow(*value, key), key);
    });
}

std::optional<NSData> NSKeyedUnarchiver::decodeData(std::string_view key) {
    return reading(key, [&]() -> std::optional<NSData> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        const auto bytes = state_->bytes(state_->follow(*value, key), key);
        state_->spendBytes(bytes.size(), key);
        return NSData(bytes.begin(), bytes.end());
    });
}

std::optional<NSUUID> NSKeyedUnarchiver::decodeUUID(std::string_view key) {
    return reading(key, [&]() -> std::optional<NSUUID> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        Dictionary object(state_->follow(*value, key));
        static const NSClassSet classes{&NSUUIDClass};
        state_->classOf(object, classes, key);
        const auto bytes = state_->find(object, "NS.uuidbytes", key);
        if (!bytes || bytes->kind != Kind::data || bytes->count != 16) {
            fail(key, "a UUID is malformed");
        }
        NSUUID::Bytes uuid;
        std::copy_n(bytes->bytes, uuid.size(), uuid.begin());
        return NSUUID(uuid);
    });
}

std::optional<NSURL> NSKeyedUnarchiver::decodeURL(std::string_view key) {
    return reading(key, [&]() -> std::optional<NSURL> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        return state_->url(*value, key);
    });
}

NSIndexPath NSKeyedUnarchiver::decodeIndexPath(std::string_view key) {
    return reading(key, [&] {
        NSIndexPath path;
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return path;
        Dictionary object(state_->follow(*value, key));
        static const NSClassSet classes{&NSIndexPathClass};
        state_->classOf(object, classes, key);
        const auto length = state_->find(object, "NSIndexPathLength", key);
        if (!length || length->kind != Kind::integer)
            fail(key, "an index path is malformed");
        if (const auto single = state_->find(object, "NSIndexPathValue", key)) {
            const auto index = state_->integer(*single, key);
            if (length->bits != 1 || index < 0)
                fail(key, "an index path is malformed");
            path.indexes.push_back(static_cast<std::uint64_t>(index));
            return path;
        }
        const auto data = state_->find(object, "NSIndexPathData", key);
        if (!data)
            fail(key, "an index path is malformed");
        const auto bytes = state_->bytes(state_->follow(*data, key), key);
        if (bytes.size() % 8 != 0 || bytes.size() / 8 != length->bits) {
            fail(key, "an index path is malformed");
        }
        state_->spendBytes(bytes.size(), key);
        path.indexes.resize(bytes.size() / 8);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            path.indexes[i / 8] = path.indexes[i / 8] << 8 | bytes[i];
        }
        return path;
    });
}

NSErrorRef NSKeyedUnarchiver::decodeError(std::string_view key) {
    return reading(key, [&]() -> NSErrorRef {
        const auto value = state_->find(key);
        return value ? state_->error(*value, key) : nullptr;
    });
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::decodeObject(std::string_view key,
                                                          const NSClassSet& classes) {
    return reading(key, [&]() -> std::shared_ptr<NSObject> {
        const auto value = state_->find(key);
        return value ? objectAt(state_->uid(*value, key), key, classes) : nullptr;
    });
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::objectAt(std::uint64_t uid, std::string_view key,
                                                      const NSClassSet& classes) {
    using Progress = State::Slot::Progress;
    if (uid == 0)
        return nullptr;
    auto& state = *state_;
    state.spendObject(key);
    Dictionary dictionary(state.list.element(state.objects, uid));
    const auto& c = state.classOf(dictionary, classes, key);
    auto& slot = state.slot(uid);
    if (slot.progress == Progress::decoded)
        return slot.object;
    if (slot.progress == Progress::beingDecoded)
        fail(key, "an object holds itself");
    if (!c.initWithCoder)
        State::refuse(c.name, key);
    const State::Depth depth(state.budget, key);
    slot.progress = Progress::beingDecoded;
    const State::Within within(state, dictionary);
    try {
        slot.object = c.initWithCoder(*this);
    } catch (const NSException& e) {
        fail(key, "an object of class \"" + std::string(c.name) + "\" cannot be rebuilt (" +
                      e.reason() + ")");
    }
    slot.progress = Progress::decoded;
    return slot.object;
}

bool NSKeyedUnarchiver::isArray(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find(key);
        return value && !state_->isNil(*value, key) && (state_->array(*value, key), true);
    });
}

template <class Read>
void NSKeyedUnarchiver::readArray(std::string_view key, Read&& read) {
    reading(key, [&] {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return;
        const auto array = state_->array(*value, key);
        for (std::uint64_t i = 0; i < array.count; ++i) {
            read(state_->list.element(array, i), static_cast<std::size_t>(array.count));
        }
    });
}

std::vector<std::shared_ptr<NSObject>> NSKeyedUnarchiver::decodeObjects(std::string_view key,
                                                                        const NSClassSet& classes) {
    if (!contains(classes, NSArrayClass)) {
        if (isArray(key))
            State::refuse(NSArrayClass.name, key);
    }
    std::vector<std::shared_ptr<NSObject>> objects;
    readArray(key, [&](const Value& element, std::size_t count) {
        if (objects.empty())
            objects.reserve(count);
        const auto uid = state_->uid(element, key);
        if (uid == 0)
            fail(key, "an element of an array is nil");
        objects.push_back(objectAt(uid, key, classes));
    });
    return objects;
}

std::vector<NSURL> NSKeyedUnarchiver::decodeURLs(std::string_view key) {
    std::vector<NSURL> urls;
    readArray(
        key, [&](const Value& element, std::size_t) { urls.push_back(state_->url(element, key)); });
    return urls;
}

std::vector<std::string> NSKeyedUnarchiver::decodeStrings(std::string_view key) {
    std::vector<std::string> strings;
    readArray(key, [&](const Value& element, std::size_t) {
        strings.push_back(state_->text(state_->follow(element, key), key));
    });
    return strings;
}

std::vector<std::int64_t> NSKeyedUnarchiver::decodeIntegers(std::string_view key) {
    std::vector<std::int64_t> integers;
    readArray(key, [&](const Value& element, std::size_t) {
        integers.push_back(state_->integer(state_->follow(element, key), key));
    });
    return integers;
}

std::vector<std::shared_ptr<NSObject>> NSKeyedUnarchiver::decodeArchives(std::string_view key,
                                                                         const NSClass& root) {
    std::vector<std::shared_ptr<NSObject>> objects;
    const NSClassSet classes{&root};
    readArray(key, [&](const Value& element, std::size_t count) {
        if (objects.empty())
            objects.reserve(count);
        const auto data = state_->bytes(state_->follow(element, key), key);
        NSKeyedUnarchiver nested(std::make_unique<State>(data, state_->budget));
        auto object = nested.decodeObject("root", classes);
        if (!object)
            fail(key, "a nested archive holds no object");
        objects.push_back(std::move(object));
    });
    return objects;
}

}  // namespace morvane
