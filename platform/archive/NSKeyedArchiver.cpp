// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/fast/SpareStates.h>

#include <memory>
#include <utility>

#include "NSKeyedArchiverState.h"

namespace morvane {

NSArchiveFront::NSArchiveFront(std::initializer_list<std::string_view> keys,
                               std::initializer_list<const NSClass*> classes,
                               const NSBriefCoding* brief)
    : front_(std::make_unique<ArchiveFront>(keys, classes, brief)) {}

NSArchiveFront::~NSArchiveFront() = default;

NSKeyedArchiver::NSKeyedArchiver() : NSKeyedArchiver(ArchiveFront::common()) {}

NSKeyedArchiver::NSKeyedArchiver(const ArchiveFront& front)
    : state_(SpareStates<State>::shared().take()) {
    if (!state_)
        state_ = std::make_unique<State>();
    state_->reset(front);
}

NSKeyedArchiver::~NSKeyedArchiver() {
    // A large archive's memory is given back, and so is what an exception has left halfway.
    constexpr std::size_t mostObjects = 1024;
    constexpr std::size_t mostMemory = std::size_t{256} << 10;
    if (state_->finished && state_->objects.size() < mostObjects &&
        state_->list.memory() <= mostMemory)
        SpareStates<State>::shared().put(std::move(state_));
}

NSData NSKeyedArchiver::archivedDataWithRootObject(const NSObject& root) {
    NSKeyedArchiver archiver;
    archiver.encodeObject(&root, "root");
    return archiver.finishEncoding();
}

void NSKeyedArchiver::encodeBool(bool value, std::string_view key) {
    state_->put(key, state_->list.boolean(value));
}

void NSKeyedArchiver::encodeInt32(std::int32_t value, std::string_view key) {
    state_->put(key, state_->list.integer(value));
}

void NSKeyedArchiver::encodeInt64(std::int64_t value, std::string_view key) {
    state_->put(key, state_->list.integer(value));
}

void NSKeyedArchiver::encodeDouble(double value, std::string_view key) {
    state_->put(key, state_->list.real(value));
}

void NSKeyedArchiver::encodeString(std::optional<std::string_view> value, std::string_view key) {
    state_->put(key, value ? state_->object(state_->list.string(*value)) : state_->nil());
}

void NSKeyedArchiver::encodeData(NSDataView value, std::string_view key) {
    state_->put(key, state_->object(state_->list.data(value)));
}

void NSKeyedArchiver::encodeOwnedData(NSData value, std::string_view key) {
    state_->put(key, state_->object(state_->list.ownedData(std::move(value))));
}

void NSKeyedArchiver::encodeUUID(const std::optional<NSUUID>& value, std::string_view key) {
    if (!value) {
        state_->put(key, state_->nil());
        return;
    }
    const auto base = state_->pending.size();
    state_->put("NS.uuidbytes", state_->list.data(NSDataView(value->bytes())));
    const auto dictionary = state_->endDictionary(base, NSUUIDClass);
    state_->put(key, state_->object(dictionary));
}

void NSKeyedArchiver::encodeURL(const std::optional<NSURL>& value, std::string_view key) {
    if (value) {
        state_->pending.push_back(state_->list.sharedString(key));
        encodeURLValue(*value);
    } else {
        state_->put(key, state_->nil());
    }
}

// Leaves the reference at the end of the pending values.
void NSKeyedArchiver::encodeURLValue(const NSURL& value) {
    const auto base = state_->pending.size();
    state_->put("NS.base", state_->nil());
    state_->put("NS.relative", state_->object(state_->list.string(value.absoluteString())));
    const auto dictionary = state_->endDictionary(base, NSURLClass);
    state_->pending.push_back(state_->object(dictionary));
}

void NSKeyedArchiver::encodeIndexPath(const NSIndexPath& value, std::string_view key) {
    NSData bytes;
    bytes.reserve(value.indexes.size() * 8);
    for (const auto index : value.indexes) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(index >> shift));
        }
    }
    const auto base = state_->pending.size();
    encodeInt64(static_cast<std::int64_t>(value.indexes.size()), "NSIndexPathLength");
    encodeData(bytes, "NSIndexPathData");
    const auto dictionary = state_->endDictionary(base, NSIndexPathClass);
    state_->put(key, state_->object(dictionary));
}

void NSKeyedArchiver::encodeError(const NSErrorRef& value, std::string_view key) {
    if (!value) {
        state_->put(key, state_->nil());
        return;
    }
    const auto base = state_->pending.size();
    encodeString(std::string_view(value->domain()), "NSDomain");
    encodeInt64(value->code(), "NSCode");

    const auto userInfoBase = state_->pending.size();
    beginArray(value->userInfo().size());
    for (const auto& [name, entry] : value->userInfo()) {
        state_->pending.push_back(state_->object(state_->list.string(name)));
    }
    endPlainArray("NS.keys");
    beginArray(value->userInfo().size());
    for (const auto& [name, entry] : value->userInfo())
        appendErrorValue(entry);
    endPlainArray("NS.objects");
    const auto userInfo = state_->endDictionary(userInfoBase, NSDictionaryClass);
    state_->put("NSUserInfo", state_->object(userInfo));

    const auto dictionary = state_->endDictionary(base, NSError::classObject());
    state_->put(key, state_->object(dictionary));
}

void NSKeyedArchiver::appendErrorValue(const NSErrorValue& value) {
    auto& state = *state_;
    if (const auto* text = std::get_if<std::string>(&value)) {
        state.pending.push_back(state.object(state.list.string(*text)));
    } else if (const auto* number = std::get_if<std::int64_t>(&value)) {
        state.pending.push_back(state.object(state.list.integer(*number)));
    } else if (const auto* url = std::get_if<NSURL>(&value)) {
        encodeURLValue(*url);
    } else if (const auto* errors = std::get_if<std::vector<NSErrorRef>>(&value)) {
        beginArray(errors->size());
        for (const auto& error : *errors)
            appendErrorValue(error);
        endArray("");
        state.pending.erase(state.pending.end() - 2);  // the key
    } else {
        encodeError(std::get<NSErrorRef>(value), "");
        state.pending.erase(state.pending.end() - 2);  // the key
    }
}

void NSKeyedArchiver::encodeObject(const NSObject* value, std::string_view key) {
    state_->pending.push_back(state_->list.sharedString(key));
    appendObject(value);
}

void NSKeyedArchiver::encodeObjects(std::span<const std::shared_ptr<NSObject>> values,
                                    std::string_view key) {
    beginArray(values.size());
    for (const auto& value : values)
        appendObject(value.get());
    endArray(key);
}

void NSKeyedArchiver::encodeURLs(std::span<const NSURL> values, std::string_view key) {
    beginArray(values.size());
    for (const auto& value : values) {
        encodeURLValue(value);
        state_->elementAdded();
    }
    endArray(key);
}

void NSKeyedArchiver::encodeStrings(std::span<const std::string> values, std::string_view key) {
    beginArray(values.size());
    for (const auto& value : values) {
        state_->pending.push_back(state_->object(state_->list.string(value)));
        state_->elementAdded();
    }
    endArray(key);
}

void NSKeyedArchiver::encodeIntegers(std::span<const std::int64_t> values, std::string_view key) {
    beginArray(values.size());
    for (const auto value : values) {
        state_->pending.push_back(state_->object(state_->list.integer(value)));
    }
    endArray(key);
}

NSData NSKeyedArchiver::finishEncoding() {
    NSData archive;
    state_->list.write(state_->finish(), archive);
    return archive;
}

NSDataPieces NSKeyedArchiver::finishEncodingInPieces() {
    NSDataPieces archive;
    const auto root = state_->finish();
    archive.others = state_->list.writeInPieces(root, archive.first);
    return archive;
}

void NSKeyedArchiver::beginArray(std::size_t count) {
    state_->arrays.push_back({state_->pending.size(), count, state_->objects.size(),
                              state_->list.valueCount(), state_->list.size()});
    state_->arrayBegun(count);
}

void NSKeyedArchiver::appendObject(const NSObject* value) {
    auto& state = *state_;
    if (!value) {
        state.pending.push_back(state.nil());
        return;
    }
    const auto next = static_cast<std::uint32_t>(state.objects.size());
    const auto [uid, isNew] = state.table.insert(value, next);
    const auto& c = value->objectClass();
    if (isNew) {
        state.objects.push_back(State::unwritten);
        if (c.plainCoding && c.plainCoding->fields.size() <= NSPlainCoding::mostFields &&
            state.list.large()) {
            const auto dictionary = state.plain.write(state.list, *value, c, uid,
                                                      [&] { return state.classReference(c); });
            state.objects[uid] = dictionary;
            state.pending.push_back(dictionary + 1);
            return;
        }
        const auto base = state.pending.size();
        value->encodeWithCoder(*this);
        state.objects[uid] = state.endDictionary(base, c);
    } else if (state.objects[uid] == State::unwritten) {
        throw NSException(NSInvalidArgumentException, "An object of class " + std::string(c.name) +
                                                          " holds itself; it cannot be archived.");
    }
    state.pending.push_back(state.list.uid(uid));
    state.elementAdded();
}

void NSKeyedArchiver::appendArchive(const NSObject& value) {
    appendArchive(value, ArchiveFront::common());
}

void NSKeyedArchiver::appendArchive(const NSObject& value, const NSArchiveFront& front) {
    appendArchive(value, *front.front_);
}

void NSKeyedArchiver::appendArchive(const NSObject& value, const ArchiveFront& front) {
    const auto data = state_->list.data([&](NSData& out) { writeArchive(value, front, out); });
    state_->pending.push_back(state_->object(data));
    state_->elementAdded();
}

void NSKeyedArchiver::writeArchive(const NSObject& value, const ArchiveFront& front, NSData& out) {
    NSKeyedArchiver archiver(front);
    archiver.encodeObject(&value, "root");
    archiver.state_->list.write(archiver.state_->finish(), out);
}

void NSKeyedArchiver::endPlainArray(std::string_view key) {
    const auto base = state_->arrays.back().base;
    state_->arrays.pop_back();
    const auto elements = state_->list.array(std::span(state_->pending).subspan(base));
    state_->pending.resize(base);
    state_->put(key, elements);
}

void NSKeyedArchiver::endArray(std::string_view key) {
    const auto base = state_->arrays.back().base;
    endPlainArray("NS.objects");
    const auto dictionary = state_->endDictionary(base, NSArrayClass);
    state_->put(key, state_->object(dictionary));
}

}  // namespace morvane
