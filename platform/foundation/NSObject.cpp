// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>

#include <string>

namespace morvane {
namespace {
constexpr NSClass objectClassObject{"NSObject", nullptr, nullptr};
}

constexpr NSClass NSArrayClass{"NSArray", &objectClassObject, nullptr};
constexpr NSClass NSDictionaryClass{"NSDictionary", &objectClassObject, nullptr};
constexpr NSClass NSStringClass{"NSString", &objectClassObject, nullptr};
constexpr NSClass NSNumberClass{"NSNumber", &objectClassObject, nullptr};
constexpr NSClass NSDataClass{"NSData", &objectClassObject, nullptr};
constexpr NSClass NSDateClass{"NSDate", &objectClassObject, nullptr};
constexpr NSClass NSURLClass{"NSURL", &objectClassObject, nullptr};
constexpr NSClass NSUUIDClass{"NSUUID", &objectClassObject, nullptr};
constexpr NSClass NSIndexPathClass{"NSIndexPath", &objectClassObject, nullptr};

const NSClassSet& propertyListClasses() {
    // Never destroyed: other threads may decode while the process ends.
    static const auto& classes = *new NSClassSet{&NSArrayClass,  &NSDictionaryClass, &NSStringClass,
                                                 &NSNumberClass, &NSDataClass,       &NSDateClass};
    return classes;
}

NSObject::~NSObject() = default;

const NSClass& NSObject::classObject() {
    return objectClassObject;
}

const NSClass& NSObject::objectClass() const {
    return classObject();
}

bool NSObject::isEqual(const NSObject* other) const {
    return this == other;
}

void NSObject::encodeWithCoder(NSKeyedArchiver&) const {
    throw NSException(
        "NSInvalidArgumentException",
        "Objects of class " + std::string(objectClass().name) + " do not support secure coding.");
}

}  // namespace morvane
