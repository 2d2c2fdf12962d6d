// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <bit>
#include <limits>

#include "NSKeyedUnarchiverState.h"

namespace morvane {
namespace {

using keyed::Dictionary;
using keyed::fail;
using keyed::Kind;
using keyed::Value;

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

NSArchiveFailure::NSArchiveFailure(std::string_view key, const std::string& what)
    : what_("The archive cannot be read: for key \"" + std::string(key) + "\", " + what + ".") {
    error_ = NSError::errorWithDomain(NSCocoaErrorDomain, NSCoderReadCorruptError,
                                      {{NSLocalizedDescriptionKey, what_}});
}

NSArchiveFailure::~NSArchiveFailure() = default;

NSDecodingBudget NSDecodingBudget::forArchiveOfSize(std::size_t size,
                                                    const NSDecodingBudget& most) {
    // An archive's bytes are counted again at each level that it is nested below; every value takes
    // at least a byte, and some are read twice.
    NSDecodingBudget budget = most;
    budget.bytes = std::min(most.bytes, std::uint64_t{size} * most.depth + 4096);
    budget.objects = std::min(most.objects, std::uint64_t{size} * 2 + 1024);
    return budget;
}

NSKeyedUnarchiver::NSKeyedUnarchiver(NSDataView data, const NSDecodingBudget& most)
    : own_(reading("root", [&] { return std::make_unique<State>(data, most); })),
      state_(own_.get()) {}

NSKeyedUnarchiver::NSKeyedUnarchiver(State& state) : state_(&state) {}

NSDecodingBudget NSKeyedUnarchiver::budgetLeft() const {
    return state_->budget;
}

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
        const auto value = state_->find<Kind::boolean>(key);
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
        const auto value = state_->find<Kind::integer>(key);
        return value ? state_->integer(*value, key) : 0;
    });
}

double NSKeyedUnarchiver::decodeDouble(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find<Kind::real>(key);
        if (!value)
            return 0.0;
        if (value->kind != Kind::real)
            fail(key, "a real number was expected");
        return std::bit_cast<double>(value->bits);
    });
}

std::optional<std::string> NSKeyedUnarchiver::decodeString(std::string_view key) {
    const auto text = decodeText(key);
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

std::optional<std::string_view> NSKeyedUnarchiver::decodeText(std::string_view key) {
    return reading(key, [&]() -> std::optional<std::string_view> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        return state_->text(state_->follow<Kind::ascii>(*value, key), key);
    });
}

std::optional<NSData> NSKeyedUnarchiver::decodeData(std::string_view key) {
    return reading(key, [&]() -> std::optional<NSData> {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return std::nullopt;
        const auto bytes = state_->bytes(state_->follow<Kind::data>(*value, key), key);
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
        static const NSClass* const classes[] = {&NSUUIDClass};
        state_->classOf(object, classes, key);
        const auto bytes = state_->find<Kind::data>(object, "NS.uuidbytes", key);
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
        static const NSClass* const classes[] = {&NSIndexPathClass};
        state_->classOf(object, classes, key);
        const auto length = state_->find<Kind::integer>(object, "NSIndexPathLength", key);
        if (!length || length->kind != Kind::integer)
            fail(key, "an index path is malformed");
        if (const auto single = state_->find<Kind::integer>(object, "NSIndexPathValue", key)) {
            const auto index = state_->integer(*single, key);
            if (length->bits != 1 || index < 0)
                fail(key, "an index path is malformed");
            path.indexes.push_back(static_cast<std::uint64_t>(index));
            return path;
        }
        const auto data = state_->find(object, "NSIndexPathData", key);
        if (!data)
            fail(key, "an index path is malformed");
        const auto bytes = state_->bytes(state_->follow<Kind::data>(*data, key), key);
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
    return decodeObject(key, classes, true);
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::decodeObject(std::string_view key, Classes classes,
                                                          bool holds) {
    return reading(key, [&]() -> std::shared_ptr<NSObject> {
        const auto value = state_->find(key);
        return value ? objectAt(state_->uid(*value, key), key, classes, holds) : nullptr;
    });
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::objectAt(std::uint64_t uid, std::string_view key,
                                                      Classes classes, bool holds) {
    if (uid == 0)
        return nullptr;
    auto& state = *state_;
    state.spendObject(key);
    Dictionary dictionary(state.list.element<Kind::dictionary>(state.objects, uid));
    const auto& c = state.classOf(dictionary, classes, key);
    if (!c.initWithCoder)
        State::refuse(c.name, key);
    if (c.standsOnce) {
        if (!state.rebuilt.standsOnce(uid))
            fail(key, "an object of class \"" + std::string(c.name) +
                          "\" stands there that stands in another place too");
    } else if (auto object = state.rebuilt.find(uid)) {
        return object;
    }
    state.requireNotWithin(uid, key);
    const State::Depth depth(state.budget, key);
    const State::Within within(state, dictionary, uid, key);
    std::shared_ptr<NSObject> object;
    try {
        object = c.initWithCoder(*this);
    } catch (const NSException& e) {
        fail(key, "an object of class \"" + std::string(c.name) + "\" cannot be rebuilt (" +
                      e.reason() + ")");
    }
    if (holds && object && !c.standsOnce)
        state.rebuilt.hold(uid, object);
    return object;
}

NSKeyedUnarchiver::ObjectBlock* NSKeyedUnarchiver::takeRoom(std::size_t size) {
    const auto* const within = state_->innermost;
    state_->spendBytes(size, within ? within->key : "root");
    if (state_->largeArrays == 0 || size > ObjectBlock::largest)
        return nullptr;
    auto& block = state_->block;
    if (!block || !block->hasRoom(size))
        block = ObjectBlock::make(state_->blocks++);
    return block.get();
}

bool NSKeyedUnarchiver::isNil(std::string_view key) {
    return reading(key, [&] {
        const auto value = state_->find(key);
        return !value || (value->kind == Kind::uid && value->bits == 0);
    });
}

bool NSKeyedUnarchiver::isArray(std::string_view key) {
    if (isNil(key))
        return false;
    try {
        state_->array(*state_->find(key), key);
        return true;
    } catch (const NSArchiveFailure&) {
    } catch (const PropertyListDamage&) {
    }
    return false;
}

template <class Read>
void NSKeyedUnarchiver::readArray(std::string_view key, Read&& read) {
    reading(key, [&] {
        const auto value = state_->find(key);
        if (!value || state_->isNil(*value, key))
            return;
        const auto array = state_->array(*value, key);
        const State::LargeArray large(*state_, array.count);
        read(array);
    });
}

template <class Read>
void NSKeyedUnarchiver::readElements(std::string_view key, Read&& read) {
    readArray(key, [&](const Value& array) {
        for (std::uint64_t i = 0; i < array.count; ++i) {
            read(state_->list.element<Kind::uid>(array, i), static_cast<std::size_t>(array.count));
        }
    });
}

void NSKeyedUnarchiver::readObjects(std::string_view key, const NSClassSet& classes,
                                    Elements& elements) {
    if (!keyed::contains(classes, NSArrayClass)) {
        if (isArray(key))
            State::refuse(NSArrayClass.name, key);
    }
    readArray(key, [&](const Value& array) {
        elements.reserve(array.count);
        const State::Lending lending(*state_, elements, array);
        const bool lends = !state_->innermost && state_->rebuilt.areLent();
        for (std::uint64_t i = 0; i < array.count; ++i) {
            const auto uid = state_->uid(state_->list.element<Kind::uid>(array, i), key);
            auto object = objectAt(uid, key, classes, !lends);
            if (!object)
                fail(key, "an element of an array is nil");
            if (!elements.append(std::move(object)))
                // NOLINTNEXTLINE(bugprone-use-after-move): moved only if taken
                State::refuse(object->objectClass().name, key);
            if (lends)
                state_->rebuilt.lend(uid);
        }
    });
}

std::vector<NSURL> NSKeyedUnarchiver::decodeURLs(std::string_view key) {
    std::vector<NSURL> urls;
    readElements(
        key, [&](const Value& element, std::size_t) { urls.push_back(state_->url(element, key)); });
    return urls;
}

std::vector<std::string> NSKeyedUnarchiver::decodeStrings(std::string_view key) {
    std::vector<std::string> strings;
    readElements(key, [&](const Value& element, std::size_t) {
        strings.emplace_back(state_->text(state_->follow<Kind::ascii>(element, key), key));
    });
    return strings;
}

std::vector<std::int64_t> NSKeyedUnarchiver::decodeIntegers(std::string_view key) {
    std::vector<std::int64_t> integers;
    readElements(key, [&](const Value& element, std::size_t) {
        integers.push_back(state_->integer(state_->follow<Kind::integer>(element, key), key));
    });
    return integers;
}

std::vector<std::shared_ptr<NSObject>> NSKeyedUnarchiver::decodeArchives(std::string_view key,
                                                                         const NSClass& root) {
    return decodeArchives(key, root, ArchiveFront::common());
}

std::vector<std::shared_ptr<NSObject>> NSKeyedUnarchiver::decodeArchives(
    std::string_view key, const NSClass& root, const NSArchiveFront& front) {
    return decodeArchives(key, root, *front.front_);
}

std::vector<std::shared_ptr<NSObject>> NSKeyedUnarchiver::decodeArchives(
    std::string_view key, const NSClass& root, const ArchiveFront& front) {
    std::vector<std::shared_ptr<NSObject>> objects;
    const NSClass* const classes[] = {&root};
    readElements(key, [&](const Value& element, std::size_t count) {
        if (objects.empty())
            objects.reserve(count);
        if (!state_->rebuilt.standsOnce(state_->uid(element, key)))
            fail(key, "a nested archive stands there that stands in another place too");
        const auto data = state_->bytes(state_->follow<Kind::data>(element, key), key);
        State state(data, *state_, front);
        NSKeyedUnarchiver nested(state);
        auto object = nested.decodeObject("root", classes, false);
        if (!object)
            fail(key, "a nested archive holds no object");
        objects.push_back(std::move(object));
    });
    return objects;
}

}  // namespace morvane
