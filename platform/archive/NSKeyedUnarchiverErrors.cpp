// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSError.h>

#include "NSKeyedUnarchiverState.h"

namespace morvane {

NSErrorRef NSKeyedUnarchiver::State::error(const Value& reference, std::string_view key) {
    if (isNil(reference, key))
        return nullptr;
    const Depth depth(budget, key);
    Dictionary object(follow(reference, key));
    static const NSClass* const classes[] = {&NSError::classObject()};
    classOf(object, classes, key);
    const auto domain = find(object, "NSDomain", key);
    const auto code = find<Kind::integer>(object, "NSCode", key);
    if (!domain || !code)
        keyed::fail(key, "an error has no domain or no code");
    NSErrorUserInfo userInfo;
    const auto info = find(object, "NSUserInfo", key);
    if (info && !isNil(*info, key)) {
        Dictionary dictionary(follow(*info, key));
        static const NSClass* const dictionaryClasses[] = {&NSDictionaryClass};
        classOf(dictionary, dictionaryClasses, key);
        const auto names = elements(dictionary, "NS.keys", key);
        const auto values = elements(dictionary, "NS.objects", key);
        if (names.count != values.count)
            keyed::fail(key, "a dictionary is malformed");
        for (std::uint64_t i = 0; i < names.count; ++i) {
            std::string name(
                text(follow<Kind::ascii>(list.element<Kind::uid>(names, i), key), key));
            if (!userInfo
                     .emplace(std::move(name), errorValue(list.element<Kind::uid>(values, i), key))
                     .second) {
                keyed::fail(key, "a dictionary has a key twice");
            }
        }
    }
    return NSError::errorWithDomain(std::string(text(follow<Kind::ascii>(*domain, key), key)),
                                    integer(*code, key), std::move(userInfo));
}

NSErrorValue NSKeyedUnarchiver::State::errorValue(const Value& reference, std::string_view key) {
    if (isNil(reference, key))
        return NSErrorRef();
    const auto value = follow(reference, key);
    if (value.kind == Kind::integer)
        return integer(value, key);
    if (value.kind != Kind::dictionary)
        return std::string(text(value, key));
    Dictionary object(value);
    static const NSClass* const classes[] = {&NSURLClass, &NSError::classObject(), &NSStringClass,
                                             &NSArrayClass};
    const auto& c = classOf(object, classes, key);
    if (&c == &NSURLClass)
        return url(reference, key);
    if (&c == &NSStringClass)
        return std::string(text(value, key));
    if (&c != &NSArrayClass)
        return error(reference, key);
    const Depth depth(budget, key);
    const auto values = elements(object, "NS.objects", key);
    std::vector<NSErrorRef> errors;
    for (std::uint64_t i = 0; i < values.count; ++i)
        errors.push_back(error(list.element<Kind::uid>(values, i), key));
    return errors;
}

}  // namespace morvane
