// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/archive/fast/ArchiveFront.h>
#include <MorvaneOperation/platform/archive/fast/ObjectTable.h>
#include <MorvaneOperation/platform/archive/fast/PlainObjects.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

/// One archive while it is being written: what is written already, and what is under way.
namespace morvane {

struct NSKeyedArchiver::State {
    using Ref = PropertyListWriter::Ref;
    static constexpr Ref unwritten = 0xffffffff;

    PropertyListWriter list;
    const ArchiveFront* front = nullptr;
    ObjectTable table;
    /// The value of each UID; unwritten while its object is being encoded.
    std::vector<Ref> objects;
    /// Keys and values of the dictionaries, elements of the arrays under way, innermost last.
    std::vector<Ref> pending;
    struct Array {
        std::size_t base;
        std::size_t count;
        /// What there was before it.
        std::size_t objects;
        std::size_t values;
        std::size_t bytes;
    };
    std::vector<Array> arrays;
    /// With the references to them.
    std::vector<std::pair<const NSClass*, Ref>> classes;
    PlainObjects plain;
    bool finished = false;

    void reset(const ArchiveFront& f) {
        front = &f;
        list.clear(front);
        table.clear();
        objects.clear();
        pending.clear();
        arrays.clear();
        classes.clear();
        plain.clear();
        finished = false;
        objects.push_back(nullText);
    }

    void put(Ref key, Ref value) {
        pending.push_back(key);
        pending.push_back(value);
    }
    void put(std::string_view key, Ref value) { put(list.sharedString(key), value); }

    /// A new object whose value is `value`, as a reference to it.
    Ref object(Ref value) {
        objects.push_back(value);
        return list.uid(static_cast<std::uint32_t>(objects.size() - 1));
    }

    Ref nil() { return list.uid(0); }

    // What large arrays get room for; defined in fast/ArrayRoom.h.
    void arrayBegun(std::size_t count);
    void elementAdded();

    Ref classReference(const NSClass& c) {
        for (const auto& [known, reference] : classes) {
            if (known == &c)
                return reference;
        }
        if (const auto description = front->descriptionOf(c)) {
            const auto reference = object(*description);
            classes.emplace_back(&c, reference);
            return reference;
        }
        const auto base = pending.size();
        const auto nameOf = [&](const NSClass& k) {
            return &k == &NSObject::classObject() ? Ref{rootClassName} : list.sharedString(k.name);
        };
        for (const NSClass* k = &c; k; k = k->superclass)
            pending.push_back(nameOf(*k));
        const auto names = list.array(std::span(pending).subspan(base));
        pending.resize(base);
        const Ref pairs[] = {classNameKey, nameOf(c), classesKey, names};
        const auto reference = object(list.dictionary(pairs));
        classes.emplace_back(&c, reference);
        return reference;
    }

    /// Ends the dictionary whose pairs stand in `pending` from `base` on.
    Ref endDictionary(std::size_t base, const NSClass& c) {
        put(Ref{classKey}, classReference(c));
        const auto dictionary = list.dictionary(std::span(pending).subspan(base));
        pending.resize(base);
        return dictionary;
    }

    /// The value that holds all others.
    Ref finish() {
        if (std::exchange(finished, true))
            throw NSException(NSInvalidArgumentException, "The archive is finished already.");
        const auto top = list.dictionary(pending);
        const Ref pairs[] = {
            versionKey, list.integer(100000), archiverKey,        archiverName, topKey,
            top,        objectsKey,           list.array(objects)};
        return list.dictionary(pairs);
    }
};

}  // namespace morvane

#include <MorvaneOperation/platform/archive/fast/ArrayRoom.h>
