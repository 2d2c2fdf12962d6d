// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morvane {

/// Whether an object of class `c` may be decoded where the classes `allowed` are.
inline bool classesAllow(const NSClassSet& allowed, const NSClass& c) {
    return std::any_of(allowed.begin(), allowed.end(),
                       [&](const NSClass* each) { return c.isSubclassOfClass(*each); });
}

inline void requireClass(const NSClassSet& allowed, const NSClass& c, std::string_view key) {
    if (!classesAllow(allowed, c))
        throw NSArchiveFailure(key, "class " + std::string(c.name) + " is not allowed here");
}

/// Defines for each type that a message may have how it is written to and read from an archive, and
/// which classes may be decoded at its position unless the interface says otherwise. A type without
/// a coding here cannot be declared in a message: it does not compile.
///
/// decode() throws NSArchiveFailure for what is not allowed or does not fit; nil is refused if the
/// type cannot represent it. In a reply, which also has an error, a nil array is decoded as an
/// empty one; a request must have its arrays.
template <class T>
struct NSXPCCoding;

namespace xpc_coding {

/// The property-list classes, and `own` if it is not one of them.
inline NSClassSet defaultClassesWith(const NSClass& own) {
    NSClassSet classes = propertyListClasses();
    if (std::find(classes.begin(), classes.end(), &own) == classes.end())
        classes.push_back(&own);
    return classes;
}

/// The coding of a value of one class that must not be nil.
template <const NSClass& Own>
struct Value {
    static NSClassSet defaultClasses() { return defaultClassesWith(Own); }
};

template <class T>
T requireValue(std::optional<T> value, std::string_view key) {
    if (!value)
        throw NSArchiveFailure(key, "nil is not allowed here");
    return *std::move(value);
}

/// Refuses an array where arrays are not allowed. Decoding refuses what is no array.
inline void admitArray(NSKeyedUnarchiver& coder, std::string_view key, const NSClassSet& allowed) {
    if (coder.isArray(key))
        requireClass(allowed, NSArrayClass, key);
}

template <class T>
inline constexpr bool isArray = false;
template <class T>
inline constexpr bool isArray<std::vector<T>> = !std::same_as<T, std::uint8_t>;

/// A request without an array does not mean the same as one with an empty array.
template <class T>
void requireArray([[maybe_unused]] NSKeyedUnarchiver& coder,
                  [[maybe_unused]] std::string_view key) {
    if constexpr (isArray<T>) {
        if (coder.isNil(key))
            throw NSArchiveFailure(key, "an array is missing");
    }
}

}  // namespace xpc_coding

template <>
struct NSXPCCoding<bool> : xpc_coding::Value<NSNumberClass> {
    static void encode(NSKeyedArchiver& coder, bool value, std::string_view key) {
        coder.encodeBool(value, key);
    }
    static bool decode(NSKeyedUnarchiver& coder, std::string_view key, const NSClassSet& allowed) {
        requireClass(allowed, NSNumberClass, key);
        return coder.decodeBool(key);
    }
};

template <>
struct NSXPCCoding<std::int32_t> : xpc_coding::Value<NSNumberClass> {
    static void encode(NSKeyedArchiver& coder, std::int32_t value, std::string_view key) {
        coder.encodeInt32(value, key);
    }
    static std::int32_t decode(NSKeyedUnarchiver& coder, std::string_view key,
                               const NSClassSet& allowed) {
        requireClass(allowed, NSNumberClass, key);
        return coder.decodeInt32(key);
    }
};

template <>
struct NSXPCCoding<std::int64_t> : xpc_coding::Value<NSNumberClass> {
    static void encode(NSKeyedArchiver& coder, std::int64_t value, std::string_view key) {
        coder.encodeInt64(value, key);
    }
    static std::int64_t decode(NSKeyedUnarchiver& coder, std::string_view key,
                               const NSClassSet& allowed) {
        requireClass(allowed, NSNumberClass, key);
        return coder.decodeInt64(key);
    }
};

template <>
struct NSXPCCoding<NSIndexPath> : xpc_coding::Value<NSIndexPathClass> {
    static void encode(NSKeyedArchiver& coder, const NSIndexPath& value, std::string_view key) {
        coder.encodeIndexPath(value, key);
    }
    static NSIndexPath decode(NSKeyedUnarchiver& coder, std::string_view key,
                              const NSClassSet& allowed) {
        requireClass(allowed, NSIndexPathClass, key);
        return coder.decodeIndexPath(key);
    }
};

template <>
struct NSXPCCoding<std::optional<std::string>> : xpc_coding::Value<NSStringClass> {
    static void encode(NSKeyedArchiver& coder, const std::optional<std::string>& value,
                       std::string_view key) {
        coder.encodeString(value, key);
    }
    static std::optional<std::string> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                             const NSClassSet& allowed) {
        auto value = coder.decodeString(key);
        if (value)
            requireClass(allowed, NSStringClass, key);
        return value;
    }
};

template <>
struct NSXPCCoding<std::optional<NSUUID>> : xpc_coding::Value<NSUUIDClass> {
    static void encode(NSKeyedArchiver& coder, const std::optional<NSUUID>& value,
                       std::string_view key) {
        coder.encodeUUID(value, key);
    }
    static std::optional<NSUUID> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                        const NSClassSet& allowed) {
        auto value = coder.decodeUUID(key);
        if (value)
            requireClass(allowed, NSUUIDClass, key);
        return value;
    }
};

template <>
struct NSXPCCoding<std::optional<NSURL>> : xpc_coding::Value<NSURLClass> {
    static void encode(NSKeyedArchiver& coder, const std::optional<NSURL>& value,
                       std::string_view key) {
        coder.encodeURL(value, key);
    }
    static std::optional<NSURL> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                       const NSClassSet& allowed) {
        auto value = coder.decodeURL(key);
        if (value)
            requireClass(allowed, NSURLClass, key);
        return value;
    }
};

template <>
struct NSXPCCoding<NSErrorRef> {
    static NSClassSet defaultClasses() {
        return xpc_coding::defaultClassesWith(NSError::classObject());
    }
    static void encode(NSKeyedArchiver& coder, const NSErrorRef& value, std::string_view key) {
        coder.encodeError(value, key);
    }
    static NSErrorRef decode(NSKeyedUnarchiver& coder, std::string_view key,
                             const NSClassSet& allowed) {
        auto value = coder.decodeError(key);
        if (value)
            requireClass(allowed, NSError::classObject(), key);
        return value;
    }
};

/// Strings, UUIDs and URLs, which must not be nil.
template <class T>
requires std::same_as<T, std::string> || std::same_as<T, NSUUID> || std::same_as<T, NSURL>
struct NSXPCCoding<T> {
    static NSClassSet defaultClasses() { return NSXPCCoding<std::optional<T>>::defaultClasses(); }
    static void encode(NSKeyedArchiver& coder, const T& value, std::string_view key) {
        NSXPCCoding<std::optional<T>>::encode(coder, value, key);
    }
    static T decode(NSKeyedUnarchiver& coder, std::string_view key, const NSClassSet& allowed) {
        return xpc_coding::requireValue(NSXPCCoding<std::optional<T>>::decode(coder, key, allowed),
                                        key);
    }
};

template <>
struct NSXPCCoding<NSData> : xpc_coding::Value<NSDataClass> {
    static void encode(NSKeyedArchiver& coder, const NSData& value, std::string_view key) {
        coder.encodeData(value, key);
    }
    static void encode(NSKeyedArchiver& coder, NSData&& value, std::string_view key) {
        coder.encodeOwnedData(std::move(value), key);
    }
    static NSData decode(NSKeyedUnarchiver& coder, std::string_view key,
                         const NSClassSet& allowed) {
        requireClass(allowed, NSDataClass, key);
        return xpc_coding::requireValue(coder.decodeData(key), key);
    }
};

template <>
struct NSXPCCoding<std::vector<NSURL>> : xpc_coding::Value<NSArrayClass> {
    static void encode(NSKeyedArchiver& coder, const std::vector<NSURL>& value,
                       std::string_view key) {
        coder.encodeURLs(value, key);
    }
    static std::vector<NSURL> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                     const NSClassSet& allowed) {
        xpc_coding::admitArray(coder, key, allowed);
        auto values = coder.decodeURLs(key);
        if (!values.empty())
            requireClass(allowed, NSURLClass, key);
        return values;
    }
};

template <>
struct NSXPCCoding<std::vector<std::string>> : xpc_coding::Value<NSArrayClass> {
    static void encode(NSKeyedArchiver& coder, const std::vector<std::string>& value,
                       std::string_view key) {
        coder.encodeStrings(value, key);
    }
    static std::vector<std::string> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                           const NSClassSet& allowed) {
        xpc_coding::admitArray(coder, key, allowed);
        auto values = coder.decodeStrings(key);
        if (!values.empty())
            requireClass(allowed, NSStringClass, key);
        return values;
    }
};

template <>
struct NSXPCCoding<std::vector<std::int64_t>> : xpc_coding::Value<NSArrayClass> {
    static void encode(NSKeyedArchiver& coder, const std::vector<std::int64_t>& value,
                       std::string_view key) {
        coder.encodeIntegers(value, key);
    }
    static std::vector<std::int64_t> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                            const NSClassSet& allowed) {
        xpc_coding::admitArray(coder, key, allowed);
        auto values = coder.decodeIntegers(key);
        if (!values.empty())
            requireClass(allowed, NSNumberClass, key);
        return values;
    }
};

/// An object of a class with secure coding, or null.
template <std::derived_from<NSObject> T>
struct NSXPCCoding<std::shared_ptr<T>> {
    static NSClassSet defaultClasses() { return xpc_coding::defaultClassesWith(T::classObject()); }
    static void encode(NSKeyedArchiver& coder, const std::shared_ptr<T>& value,
                       std::string_view key) {
        coder.encodeObject(value.get(), key);
    }
    static std::shared_ptr<T> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                     const NSClassSet& allowed) {
        auto object = coder.decodeObject(key, allowed);
        auto value = std::dynamic_pointer_cast<T>(object);
        if (object && !value)
            throw NSArchiveFailure(key, "not a " + std::string(T::classObject().name));
        return value;
    }
};

/// An array of such objects, whose class must be among those of the position.
template <std::derived_from<NSObject> T>
struct NSXPCCoding<std::vector<std::shared_ptr<T>>> : xpc_coding::Value<NSArrayClass> {
    static void encode(NSKeyedArchiver& coder, const std::vector<std::shared_ptr<T>>& values,
                       std::string_view key) {
        coder.encodeObjects(values, key);
    }
    static std::vector<std::shared_ptr<T>> decode(NSKeyedUnarchiver& coder, std::string_view key,
                                                  const NSClassSet& allowed) {
        xpc_coding::admitArray(coder, key, allowed);
        return coder.decodeObjects<T>(key, allowed);
    }
};

}  // namespace morvane
