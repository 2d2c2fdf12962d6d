// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace morvane {

class NSObject;
class NSKeyedArchiver;
class NSKeyedUnarchiver;

/// What objects that hold nothing but integers and booleans have in archives. It says the same as
/// the class's encodeWithCoder() and initWithCoder, which large arrays of such objects need not
/// call for each of them.
struct NSPlainCoding {
    enum class Kind : std::uint8_t { integer, boolean };
    struct Field {
        std::string_view key;
        Kind kind;
    };
    /// Objects of a class that has more are coded one by one.
    static constexpr std::size_t mostFields = 7;
    /// The values in the order of the fields; booleans are 0 and 1.
    using Values = std::array<std::int64_t, mostFields>;

    std::span<const Field> fields;
    /// Sets the values of an object of that very class.
    void (*get)(const NSObject& object, Values& values);
    /// Makes an object that has these values; throws only if there is no room for it.
    std::shared_ptr<NSObject> (*make)(NSKeyedUnarchiver& coder, const Values& values);
};

/// How a text and two integers tell an object whole. For objects which stand in archives of their
/// own by the dozen (NSArchiveFront), many of them alike.
struct NSBriefCoding {
    struct Values {
        std::optional<std::string> text;
        std::array<std::int64_t, 2> integers{};
        bool operator==(const Values&) const = default;
    };
    /// Sets the values; false for an object, of the very class, that holds more than these.
    bool (*get)(const NSObject& object, Values& values);
    /// Makes an object that has these values, as the class's initWithCoder does.
    std::shared_ptr<NSObject> (*make)(NSKeyedUnarchiver& coder, const Values& values);
};

/// The run-time identity of a class: compared by address, named in archives by `name`.
struct NSClass {
    std::string_view name;
    /// Null for NSObject only.
    const NSClass* superclass = nullptr;
    /// Rebuilds an object from an archive. Null: the class cannot be decoded as an object of its
    /// own (property-list and value classes are read by the unarchiver itself).
    std::shared_ptr<NSObject> (*initWithCoder)(NSKeyedUnarchiver& coder) = nullptr;
    /// Whether an archive may reach each object of the class from one place only, because its owner
    /// changes it.
    bool standsOnce = false;
    /// Null for a class whose objects hold more than that, and for one of which there are never
    /// many.
    const NSPlainCoding* plainCoding = nullptr;

    bool isSubclassOfClass(const NSClass& other) const {
        for (const NSClass* c = this; c; c = c->superclass) {
            if (c == &other)
                return true;
        }
        return false;
    }
};

/// The classes that may be decoded at one place. Order carries no meaning.
using NSClassSet = std::vector<const NSClass*>;

/// The root of the object model: run-time class identity, equality by content, secure coding.
///
/// A class with identity derives from NSObject, names itself with one static NSClass, and is held
/// by std::shared_ptr:
///
///     class Point : public NSObject {
///       public:
///         static const NSClass& classObject() {
///             static const NSClass c{"Point", &NSObject::classObject()};
///             return c;
///         }
///         const NSClass& objectClass() const override { return classObject(); }
///     };
///     assert(Point().isKindOfClass(NSObject::classObject()));
///
/// Threads: objects take no locks; one object is used on one thread at a time unless its own header
/// says otherwise. NSClass objects are immutable and live as long as the process.
class MORVANE_EXPORT NSObject {
  public:
    NSObject() = default;
    NSObject(const NSObject&) = delete;
    NSObject& operator=(const NSObject&) = delete;
    virtual ~NSObject();

    static const NSClass& classObject();
    /// The class of this very object.
    virtual const NSClass& objectClass() const;
    bool isKindOfClass(const NSClass& c) const { return objectClass().isSubclassOfClass(c); }

    /// Equality by content; identity unless a class says otherwise. Null is equal to nothing.
    virtual bool isEqual(const NSObject* other) const;

    /// Writes the object's keys. The default throws NSException "NSInvalidArgumentException": the
    /// class does not support secure coding.
    virtual void encodeWithCoder(NSKeyedArchiver& coder) const;
};

/// The classes of values that have no C++ class of their own here (strings, arrays, numbers, ...)
/// or that are C++ value types (NSURL, NSUUID, NSIndexPath), as names for class sets and archives.
MORVANE_EXPORT extern const NSClass NSArrayClass;
MORVANE_EXPORT extern const NSClass NSDictionaryClass;
MORVANE_EXPORT extern const NSClass NSStringClass;
MORVANE_EXPORT extern const NSClass NSNumberClass;
MORVANE_EXPORT extern const NSClass NSDataClass;
MORVANE_EXPORT extern const NSClass NSDateClass;
MORVANE_EXPORT extern const NSClass NSURLClass;
MORVANE_EXPORT extern const NSClass NSUUIDClass;
MORVANE_EXPORT extern const NSClass NSIndexPathClass;

/// The property-list classes: array, dictionary, string, number, data, date.
MORVANE_EXPORT const NSClassSet& propertyListClasses();

}  // namespace morvane
