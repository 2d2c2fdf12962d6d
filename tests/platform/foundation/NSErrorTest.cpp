// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

namespace morvane {
namespace {

TEST(NSError, HasADomainACodeAndWhatElseIsKnown) {
    const auto url = NSURL::fileURLWithPath("/a");
    const auto error = NSError::errorWithDomain("d", std::numeric_limits<std::int64_t>::min(),
                                                {{NSURLErrorKey, url}});
    EXPECT_EQ(error->domain(), "d");
    EXPECT_EQ(error->code(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(error->userInfo(), (NSErrorUserInfo{{NSURLErrorKey, url}}));
    EXPECT_TRUE(error->isKindOfClass(NSError::classObject()));
    EXPECT_EQ(error->objectClass().name, "NSError");
}

TEST(NSError, IsDescribedByItsOwnTextFirst) {
    EXPECT_EQ(NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES,
                                       {{NSLocalizedDescriptionKey, std::string("mine")}})
                  ->localizedDescription(),
              "mine");
}

TEST(NSError, APosixCodeIsDescribedByTheSystem) {
    EXPECT_EQ(NSError::errorWithDomain(NSPOSIXErrorDomain, ENOENT)->localizedDescription(),
              "No such file or directory");
}

TEST(NSError, AnyOtherIsDescribedByDomainAndCode) {
    EXPECT_EQ(NSError::errorWithDomain(NSCocoaErrorDomain, 4864)->localizedDescription(),
              "The operation could not be completed (NSCocoaErrorDomain error 4864).");
}

TEST(NSError, APosixCodeThatIsNoErrorNumberIsNotTakenForAnother) {
    EXPECT_EQ(NSError::errorWithDomain(NSPOSIXErrorDomain, (std::int64_t{1} << 32) + ENOENT)
                  ->localizedDescription(),
              "The operation could not be completed (NSPOSIXErrorDomain error 4294967298).");
}

TEST(NSError, ADescriptionThatIsNoTextDoesNotCount) {
    EXPECT_EQ(
        NSError::errorWithDomain("d", 1, {{NSLocalizedDescriptionKey, 7}})->localizedDescription(),
        "The operation could not be completed (d error 1).");
}

TEST(NSError, ASuggestionIsThereOnlyIfItWasGiven) {
    EXPECT_EQ(NSError::errorWithDomain("d", 1)->localizedRecoverySuggestion(), std::nullopt);
    EXPECT_EQ(NSError::errorWithDomain(
                  "d", 1, {{NSLocalizedRecoverySuggestionErrorKey, std::string("try")}})
                  ->localizedRecoverySuggestion(),
              "try");
}

TEST(NSError, IsEqualByDomainCodeAndUserInfo) {
    const auto make = [](const char* domain, int code, NSErrorUserInfo info) {
        return NSError::errorWithDomain(domain, code, std::move(info));
    };
    const auto error = make("d", 1, {{"k", std::string("v")}});
    EXPECT_TRUE(error->isEqual(make("d", 1, {{"k", std::string("v")}}).get()));
    EXPECT_FALSE(error->isEqual(make("e", 1, {{"k", std::string("v")}}).get()));
    EXPECT_FALSE(error->isEqual(make("d", 2, {{"k", std::string("v")}}).get()));
    EXPECT_FALSE(error->isEqual(make("d", 1, {{"k", std::string("w")}}).get()));
    EXPECT_FALSE(error->isEqual(make("d", 1, {{"l", std::string("v")}}).get()));
    EXPECT_FALSE(error->isEqual(make("d", 1, {{"k", 1}}).get()));
    EXPECT_FALSE(error->isEqual(make("d", 1, {}).get()));
    EXPECT_FALSE(error->isEqual(nullptr));
}

TEST(NSError, UnderlyingErrorsAreComparedByContent) {
    const auto over = [](NSErrorRef under) {
        return NSError::errorWithDomain("d", 1, {{NSUnderlyingErrorKey, std::move(under)}});
    };
    const auto a = NSError::errorWithDomain("u", 1);
    EXPECT_TRUE(over(a)->isEqual(over(NSError::errorWithDomain("u", 1)).get()));
    EXPECT_FALSE(over(a)->isEqual(over(NSError::errorWithDomain("u", 2)).get()));
    EXPECT_FALSE(over(a)->isEqual(over(nullptr).get()));
    EXPECT_FALSE(over(nullptr)->isEqual(over(a).get()));
    EXPECT_TRUE(over(nullptr)->isEqual(over(nullptr).get()));
}

TEST(NSException, SaysItsNameAndItsReason) {
    const NSException e("Name", "why");
    EXPECT_EQ(e.name(), "Name");
    EXPECT_EQ(e.reason(), "why");
    EXPECT_STREQ(e.what(), "Name: why");
}

TEST(NSException, ARangeExceptionNamesIndexAndCount) {
    try {
        throwRangeException(4, 3);
    } catch (const NSException& e) {
        EXPECT_EQ(e.name(), NSRangeException);
        EXPECT_EQ(e.reason(), "Index 4 is beyond the bounds of an array of 3 elements.");
    }
}

class Plain : public NSObject {
  public:
    static const NSClass& classObject() {
        static const NSClass c{"Plain", &NSObject::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

TEST(NSObject, IsOfItsClassAndOfThoseAbove) {
    const Plain plain;
    EXPECT_TRUE(plain.isKindOfClass(Plain::classObject()));
    EXPECT_TRUE(plain.isKindOfClass(NSObject::classObject()));
    EXPECT_FALSE(plain.isKindOfClass(NSError::classObject()));
    EXPECT_FALSE(NSObject().isKindOfClass(Plain::classObject()));
}

TEST(NSObject, AClassOfTheSameNameIsAnother) {
    const NSClass other{"Plain", &NSObject::classObject(), nullptr};
    EXPECT_FALSE(Plain().isKindOfClass(other));
}

TEST(NSObject, IsEqualToItselfAlone) {
    const Plain a;
    const Plain b;
    EXPECT_TRUE(a.isEqual(&a));
    EXPECT_FALSE(a.isEqual(&b));
    EXPECT_FALSE(a.isEqual(nullptr));
}

TEST(NSObject, NamesThePropertyListClasses) {
    EXPECT_EQ(propertyListClasses(), (NSClassSet{&NSArrayClass, &NSDictionaryClass, &NSStringClass,
                                                 &NSNumberClass, &NSDataClass, &NSDateClass}));
}

}  // namespace
}  // namespace morvane
