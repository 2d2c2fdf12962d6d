// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <algorithm>
#include <bit>
#include <limits>

#include "NSKeyedUnarchiverState.h"

namespace morvane {
namespace {

using keyed::Dictionary;
using keyed::fail;
using keyed::Kind;
using keyed::reading;

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

}  // namespace morvane
