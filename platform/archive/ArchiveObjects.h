// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/ArchiveValues.h>
#include <MorvaneOperation/platform/archive/fast/CheckedClasses.h>

#include <span>
#include <string>
#include <string_view>
#include <utility>

/// The objects of one archive: of which class each is, and what those of the property-list classes
/// hold.
namespace morvane::keyed {

using Classes = std::span<const NSClass* const>;

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

struct ArchiveObjects : ArchiveValues {
    CheckedClasses checked;

    using ArchiveValues::ArchiveValues;

    /// The one of `classes` that the object `dictionary` is of; refuses every other.
    [[gnu::always_inline]] const NSClass& classOf(Dictionary& dictionary, Classes classes,
                                                  std::string_view key) {
        const auto& value = dictionary.value;
        if (value.kind != Kind::dictionary)
            fail(key, "an object was expected");
        // Written last, and mostly the same as that of the object before.
        if (list.startsWithFront() && value.count != 0 &&
            list.reference(value, value.count - 1) == classKey) {
            const auto number = list.reference(value, std::uint64_t{value.count} * 2 - 1);
            if (const auto* const last = checked.last(number, classes))
                return *last;
            return checked.setLast(number,
                                   referredClass(list.value<Kind::uid>(number), classes, key));
        }
        const auto reference = find(dictionary, "$class", key);
        if (!reference)
            fail(key, "an object has no class");
        return referredClass(*reference, classes, key);
    }

    const NSClass& referredClass(const Value& reference, Classes classes, std::string_view key) {
        const auto classUid = uid(reference, key);
        if (const auto* const known = checked.find(classUid)) {
            if (!contains(classes, *known))
                refuse(known->name, key);
            return *known;
        }
        if (list.startsWithFront()) {
            const auto number = list.reference(objects, classUid);
            const auto* const c = static_cast<const ArchiveFront*>(list.front())->classAt(number);
            if (c && contains(classes, *c))
                return *c;
        }
        const auto& c = checkClass(list.element<Kind::dictionary>(objects, classUid), classes, key);
        checked.add(classUid, c);
        return c;
    }

    [[noreturn]] static void refuse(std::string_view name, std::string_view key) {
        std::string shown;
        for (const char ch : name.substr(0, 64))
            shown += ch >= ' ' && ch <= '~' ? ch : '?';
        fail(key, "an object of class \"" + shown + "\" is not allowed there");
    }

    const NSClass& checkClass(const Value& value, Classes classes, std::string_view key) {
        if (value.kind != Kind::dictionary)
            fail(key, "a class is malformed");
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
            fail(key, "a class is malformed");
        }
        std::uint64_t next = 0;
        const auto expect = [&](std::string_view ancestor) {
            if (next >= ancestry->count || !(list.text(*ancestry, next++) == ancestor)) {
                fail(key, "a class claims an ancestry that is not its own");
            }
        };
        const NSClass* c = nullptr;
        const PropertyListReader::Text nameText{name->bytes, name->count};
        for (const auto* allowed : classes) {
            if (nameText == allowed->name)
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
        for (const auto* k = c; k; k = k->superclass) {
            if (list.startsWithFront() && !k->superclass && next < ancestry->count &&
                list.reference(*ancestry, next) == rootClassName) {
                ++next;
                continue;
            }
            expect(k->name);
        }
        if (next != ancestry->count)
            fail(key, "a class claims an ancestry that is not its own");
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

    NSDataView bytes(const Value& value, std::string_view key) {
        return value.kind == Kind::dictionary
                   ? plainBytes(contents(value, NSDataClass, "NS.data", key), key)
                   : plainBytes(value, key);
    }

    NSURL url(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClass* const classes[] = {&NSURLClass};
        classOf(object, classes, key);
        const auto base = find(object, "NS.base", key);
        if (base && !isNil(*base, key))
            fail(key, "a URL is relative to another");
        const auto relative = find(object, "NS.relative", key);
        if (!relative)
            fail(key, "a URL has no text");
        auto result = NSURL::URLWithString(text(follow<Kind::ascii>(*relative, key), key));
        if (!result)
            fail(key, "a URL is malformed");
        return std::move(*result);
    }

    /// The elements ("NS.objects") of an array or dictionary object, as references.
    Value elements(Dictionary& object, std::string_view member, std::string_view key) {
        const auto values = find<Kind::array>(object, member, key);
        if (!values || values->kind != Kind::array)
            fail(key, "an array is malformed");
        // Checked before room is made for them.
        if (values->count > budget.objects)
            fail(key, "the archive unfolds into too many objects");
        return *values;
    }

    Value array(const Value& reference, std::string_view key) {
        Dictionary object(follow(reference, key));
        static const NSClass* const classes[] = {&NSArrayClass};
        classOf(object, classes, key);
        return elements(object, "NS.objects", key);
    }
};

}  // namespace morvane::keyed
