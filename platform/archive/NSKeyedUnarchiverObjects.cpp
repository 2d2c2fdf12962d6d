// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "NSKeyedUnarchiverState.h"

/// Objects, arrays of them, and archives that are nested in another.
namespace morvane {
namespace {

using keyed::Dictionary;
using keyed::fail;
using keyed::Kind;
using keyed::reading;
using keyed::Value;

}  // namespace

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
        State::PlainElements plain(*state_, array);
        for (std::uint64_t i = 0; i < array.count; ++i) {
            std::uint64_t uid = 0;
            auto object = lends ? plain.read(*this, i) : nullptr;
            if (object) {
                uid = plain.uidOf(i);
            } else {
                uid = state_->uid(state_->list.element<Kind::uid>(array, i), key);
                object = objectAt(uid, key, classes, !lends);
                if (lends && object)
                    plain.learn(uid, *object, key, classes);
            }
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
    readElements(key, [&](const Value& element, std::size_t count) {
        if (objects.empty())
            objects.reserve(count);
        if (!state_->rebuilt.standsOnce(state_->uid(element, key)))
            fail(key, "a nested archive stands there that stands in another place too");
        const auto data = state_->bytes(state_->follow<Kind::data>(element, key), key);
        objects.push_back(archivedObject(key, data, root, front));
    });
    return objects;
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::archivedObject(std::string_view key,
                                                            NSDataView archive, const NSClass& root,
                                                            const ArchiveFront& front) {
    auto* const recent = front.recent();
    if (!recent || !recent->takes(archive, root))
        return readArchive(key, archive, root, front);
    {
        const State::OneByOne oneByOne(*state_);
        if (auto object = recent->recall(archive, *this, state_->budget))
            return object;
    }
    const auto before = state_->budget;
    auto object = readArchive(key, archive, root, front);
    if (recent->isMetAgain(archive))
        remember(archive, *object, before, front);
    return object;
}

std::shared_ptr<NSObject> NSKeyedUnarchiver::readArchive(std::string_view key, NSDataView archive,
                                                         const NSClass& root,
                                                         const ArchiveFront& front) {
    const NSClass* const classes[] = {&root};
    State state(archive, *state_, front);
    NSKeyedUnarchiver nested(state);
    auto object = nested.decodeObject("root", classes, false);
    if (!object)
        fail(key, "a nested archive holds no object");
    return object;
}

/// Only if an object that is made of the values that the object has is written as that archive:
/// then there is nothing else in it.
void NSKeyedUnarchiver::remember(NSDataView archive, const NSObject& object,
                                 const NSDecodingBudget& before,
                                 const ArchiveFront& front) noexcept {
    auto& recent = *front.recent();
    const auto after = state_->budget;
    try {
        auto record = std::make_unique<RecentArchives::Record>();
        NSBriefCoding::Values made;
        if (recent.takes(archive, object.objectClass()) &&
            recent.coding().get(object, record->values)) {
            const State::OneByOne oneByOne(*state_);
            const auto again = recent.coding().make(*this, record->values);
            NSKeyedArchiver::writeArchive(*again, front, record->archive);
            if (recent.coding().get(*again, made) && made == record->values &&
                std::equal(archive.begin(), archive.end(), record->archive.begin(),
                           record->archive.end())) {
                record->bytes = before.bytes - after.bytes;
                record->objects = before.objects - after.objects;
                recent.remember(std::move(record));
            }
        }
    } catch (...) {
        // There was no memory, or a host's look-up failed: it is read again the next time.
    }
    state_->budget = after;
}

}  // namespace morvane
