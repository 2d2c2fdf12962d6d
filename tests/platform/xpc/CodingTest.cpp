// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace morvane {
namespace {

template <class T>
NSData encoded(const T& value) {
    NSKeyedArchiver coder;
    NSXPCCoding<T>::encode(coder, value, "0");
    return coder.finishEncoding();
}

/// What arrives where the interface was left as it is.
template <class T>
T roundTrip(const T& value, const NSClassSet& classes = NSXPCCoding<T>::defaultClasses()) {
    const auto archive = encoded(value);
    NSKeyedUnarchiver coder(archive);
    return NSXPCCoding<T>::decode(coder, "0", classes);
}

template <class T>
void expectUnchanged(const T& value) {
    EXPECT_EQ(roundTrip(value), value);
}

/// Refused where only dictionaries may stand.
template <class T>
void expectRefusedElsewhere(const T& value) {
    EXPECT_THROW(roundTrip(value, {&NSDictionaryClass}), NSArchiveFailure);
}

const auto someUuid = NSUUID::initWithUUIDString("123E4567-E89B-12D3-A456-426614174000").value();

TEST(NSXPCCoding, BooleansCross) {
    expectUnchanged(true);
    expectUnchanged(false);
    expectRefusedElsewhere(true);
}

TEST(NSXPCCoding, IntegersCrossUpToTheirLimits) {
    expectUnchanged(std::numeric_limits<std::int32_t>::min());
    expectUnchanged(std::numeric_limits<std::int32_t>::max());
    expectUnchanged(std::numeric_limits<std::int64_t>::min());
    expectUnchanged(std::numeric_limits<std::int64_t>::max());
    expectRefusedElsewhere(std::int32_t{1});
    expectRefusedElsewhere(std::int64_t{1});
}

TEST(NSXPCCoding, AnIntegerThatDoesNotFitIsRefused) {
    const auto archive = encoded(std::int64_t{1} << 31);
    NSKeyedUnarchiver coder(archive);
    EXPECT_THROW(NSXPCCoding<std::int32_t>::decode(coder, "0", {&NSNumberClass}), NSArchiveFailure);
}

TEST(NSXPCCoding, IndexPathsCross) {
    expectUnchanged(NSIndexPath{});
    expectUnchanged(NSIndexPath{{0, 5, 70000}});
    expectRefusedElsewhere(NSIndexPath{{1}});
}

TEST(NSXPCCoding, StringsCrossAndMayBeNilWhereTheTypeHasRoom) {
    expectUnchanged(std::string());
    expectUnchanged(std::string("äöü \0 x", 10));
    expectUnchanged(std::optional<std::string>("text"));
    expectUnchanged(std::optional<std::string>());
    expectRefusedElsewhere(std::string("text"));
}

TEST(NSXPCCoding, UuidsCrossAndMayBeNilWhereTheTypeHasRoom) {
    expectUnchanged(someUuid);
    expectUnchanged(std::optional<NSUUID>(someUuid));
    expectUnchanged(std::optional<NSUUID>());
    expectRefusedElsewhere(someUuid);
}

TEST(NSXPCCoding, UrlsCrossAndMayBeNilWhereTheTypeHasRoom) {
    expectUnchanged(NSURL::fileURLWithPath("/a b/ü"));
    expectUnchanged(std::optional<NSURL>(NSURL::fileURLWithPath("/a")));
    expectUnchanged(std::optional<NSURL>());
    expectRefusedElsewhere(NSURL::fileURLWithPath("/a"));
}

TEST(NSXPCCoding, NilIsRefusedWhereTheTypeHasNoRoomForIt) {
    const auto archive = encoded(std::optional<std::string>());
    NSKeyedUnarchiver coder(archive);
    const NSClassSet any = propertyListClasses();
    EXPECT_THROW(NSXPCCoding<std::string>::decode(coder, "0", any), NSArchiveFailure);
    EXPECT_THROW(NSXPCCoding<NSUUID>::decode(coder, "0", any), NSArchiveFailure);
    EXPECT_THROW(NSXPCCoding<NSURL>::decode(coder, "0", any), NSArchiveFailure);
    EXPECT_THROW(NSXPCCoding<NSData>::decode(coder, "0", any), NSArchiveFailure);
}

TEST(NSXPCCoding, ErrorsCrossWithDomainCodeAndUserInfo) {
    const auto error = NSError::errorWithDomain(
        NSPOSIXErrorDomain, 13,
        {{NSLocalizedDescriptionKey, std::string("no")},
         {NSUnderlyingErrorKey, NSError::errorWithDomain(NSCocoaErrorDomain, 4)}});
    const auto back = roundTrip<NSErrorRef>(error);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(back->code(), 13);
    EXPECT_EQ(back->localizedDescription(), "no");
    EXPECT_EQ(std::get<NSErrorRef>(back->userInfo().at(NSUnderlyingErrorKey))->code(), 4);
    EXPECT_FALSE(roundTrip<NSErrorRef>(nullptr));
    EXPECT_THROW(roundTrip<NSErrorRef>(error, {&NSStringClass}), NSArchiveFailure);
}

TEST(NSXPCCoding, DataCrosses) {
    expectUnchanged(NSData());
    expectUnchanged(NSData{0, 1, 255});
    expectRefusedElsewhere(NSData{1});
}

TEST(NSXPCCoding, ArraysOfStringsAndIntegersCross) {
    expectUnchanged(std::vector<std::string>());
    expectUnchanged(std::vector<std::string>{"a", "", "a"});
    expectUnchanged(std::vector<std::int64_t>());
    expectUnchanged(std::vector<std::int64_t>{-1, 0, std::int64_t{1} << 40});
    expectRefusedElsewhere(std::vector<std::string>{"a"});
    expectRefusedElsewhere(std::vector<std::int64_t>{1});
}

TEST(NSXPCCoding, ArraysOfUrlsCrossWhereUrlsAreDeclared) {
    const std::vector urls{NSURL::fileURLWithPath("/a"), NSURL::fileURLWithPath("/b")};
    EXPECT_EQ(roundTrip(urls, {&NSArrayClass, &NSURLClass}), urls);
    EXPECT_THROW(roundTrip(urls), NSArchiveFailure);
}

TEST(NSXPCCoding, ObjectsCrossAndMayBeNil) {
    const auto item = MVFileSizeItem::initWithSize(4101);
    const auto back = roundTrip(item);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->size(), 4101);
    EXPECT_FALSE(roundTrip(std::shared_ptr<MVFileSizeItem>()));
    EXPECT_THROW(roundTrip(item, {&NSStringClass}), NSArchiveFailure);
}

TEST(NSXPCCoding, ArraysOfObjectsCrossWhereTheirClassIsDeclared) {
    const std::vector items{MVFileSizeItem::initWithSize(1), MVFileSizeItem::initWithSize(2)};
    const auto back = roundTrip(items, {&NSArrayClass, &MVFileSizeItem::classObject()});
    ASSERT_EQ(back.size(), 2U);
    EXPECT_EQ(back[1]->size(), 2);
    EXPECT_THROW(roundTrip(items), NSArchiveFailure);
    EXPECT_THROW(roundTrip(items, {&MVFileSizeItem::classObject()}), NSArchiveFailure);
}

/// A request with arrays and without a reply that matters.
#define ListMessages(MESSAGE)                                                      \
    MESSAGE(setNames, "setNames:data:reply:",                                      \
            (std::vector<std::string> names, NSData data, NSXPCReply<bool> reply), \
            (std::move(names), std::move(data), std::move(reply)))
class List {
  public:
    virtual ~List() = default;
    ListMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(List, ListMessages)

class KeptList final : public List {
  public:
    std::vector<std::string> kept{"kept"};
    void setNames(std::vector<std::string> names, NSData, NSXPCReply<bool>) override {
        kept = std::move(names);
    }
};

/// Of a request that nobody waits for.
class NoPort final : public NSXPCReplyPort {
  public:
    bool claim() override { return false; }
    void sendReply(NSDataPieces) override {}
    void sendRefusal(std::string_view) override {}
};

/// Keeps the reply.
class KeepingPort final : public NSXPCReplyPort {
  public:
    NSDataPieces reply;
    bool claim() override { return true; }
    void sendReply(NSDataPieces archive) override { reply = std::move(archive); }
    void sendRefusal(std::string_view reason) override { FAIL() << reason; }
};

TEST(NSXPCCoding, LargeDataOfAReplyIsSentFromWhereItIs) {
    const auto port = std::make_shared<KeepingPort>();
    const NSXPCReply<NSData, bool> reply(
        xpc_message::Replier<xpc_message::Types<NSData, bool>>{port});
    NSData large(1000000, 'x');
    const auto* const place = large.data();
    reply(std::move(large), true);
    ASSERT_FALSE(port->reply.others.empty());
    EXPECT_EQ(port->reply.others[0].data(), place);
    EXPECT_LT(port->reply.size(), 1000400U);
}

TEST(NSXPCCoding, ARequestWithoutItsArrayIsNotOneWithAnEmptyArray) {
    const auto& message = protocolDescription<List>().messages[0];
    KeptList list;
    const auto send = [&](const std::function<void(NSKeyedArchiver&)>& encodeNames) -> std::string {
        NSKeyedArchiver archiver;
        encodeNames(archiver);
        archiver.encodeData({}, "1");
        const auto archive = archiver.finishEncoding();
        NSKeyedUnarchiver coder(archive);
        try {
            message.dispatch(static_cast<List*>(&list), coder, message.arguments,
                             std::make_shared<NoPort>());
        } catch (const NSXPCArgumentFailure& failure) {
            return failure.reason()->localizedDescription();
        }
        return "";
    };
    const std::string missing = "The archive cannot be read: for key \"0\", an array is missing.";
    EXPECT_EQ(send([](auto&) {}), missing);
    EXPECT_EQ(send([](auto& archiver) { archiver.encodeString(std::nullopt, "0"); }), missing);
    EXPECT_EQ(list.kept, std::vector<std::string>{"kept"});
    EXPECT_EQ(send([](auto& archiver) { archiver.encodeStrings({}, "0"); }), "");
    EXPECT_TRUE(list.kept.empty());
}

TEST(NSXPCCoding, WhatIsNoArrayIsRefusedInAnArraysPlace) {
    const auto archive = encoded(std::string("text"));
    NSKeyedUnarchiver coder(archive);
    using Items = std::vector<std::shared_ptr<MVFileSizeItem>>;
    EXPECT_THROW(NSXPCCoding<Items>::decode(coder, "0", {&MVFileSizeItem::classObject()}),
                 NSArchiveFailure);
    EXPECT_THROW(NSXPCCoding<std::vector<std::string>>::decode(coder, "0", {&NSStringClass}),
                 NSArchiveFailure);
}

TEST(NSXPCCoding, AMissingArrayReadsAsAnEmptyOne) {
    NSKeyedArchiver empty;
    const auto archive = empty.finishEncoding();
    NSKeyedUnarchiver coder(archive);
    EXPECT_TRUE(NSXPCCoding<std::vector<std::string>>::decode(coder, "0", {&NSArrayClass}).empty());
}

}  // namespace
}  // namespace morvane
