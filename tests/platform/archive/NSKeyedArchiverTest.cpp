// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <limits>

#include "ArchiveTestModels.h"

namespace morvane::test {
namespace {

TEST(NSKeyedArchiver, IntegersKeepTheirValueAtEveryWidth) {
    for (const std::int64_t value :
         {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1}, std::int64_t{0},
          std::int64_t{127}, std::int64_t{255}, std::int64_t{256}, std::int64_t{65535},
          std::int64_t{65536}, std::int64_t{4294967295}, std::int64_t{4294967296},
          std::numeric_limits<std::int64_t>::max()}) {
        Values values;
        values.wide = value;
        values.integers = {value, value};
        const auto copy = roundTrip(values);
        EXPECT_EQ(copy->wide, value);
        EXPECT_EQ(copy->integers, values.integers);
    }
    for (const std::int32_t value :
         {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        Values values;
        values.narrow = value;
        EXPECT_EQ(roundTrip(values)->narrow, value);
    }
}

TEST(NSKeyedArchiver, BooleansAndRealsKeepTheirValue) {
    Values values;
    values.flag = true;
    values.real = -0.1;
    EXPECT_TRUE(roundTrip(values)->flag);
    EXPECT_EQ(roundTrip(values)->real, -0.1);
    values.flag = false;
    EXPECT_FALSE(roundTrip(values)->flag);
}

TEST(NSKeyedArchiver, TextsKeepEveryCodePoint) {
    for (const std::string& text : std::vector<std::string>{
             std::string(), std::string("plain"), std::string("a\0b", 3), std::string("Größe"),
             std::string("\xEF\xBF\xBF"), std::string("\xF0\x9F\x93\x81 folder"),
             std::string("\xF4\x8F\xBF\xBF"), std::string(70000, 'x')}) {
        Values values;
        values.text = text;
        values.strings = {text, "", text};
        const auto copy = roundTrip(values);
        EXPECT_EQ(copy->text, text);
        EXPECT_EQ(copy->strings, values.strings);
    }
}

TEST(NSKeyedArchiver, ATextThatIsNotUtf8ThrowsInvalidArgument) {
    for (const char* text : {"\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82",
                             "\x80", "\xF0\x80\x80\x80"}) {
        Values values;
        values.text = text;
        try {
            NSKeyedArchiver::archivedDataWithRootObject(values);
            ADD_FAILURE() << "was encoded";
        } catch (const NSException& e) {
            EXPECT_EQ(e.name(), NSInvalidArgumentException);
        }
    }
}

TEST(NSKeyedArchiver, ANilTextIsNilAndAnEmptyTextIsEmpty) {
    Values values;
    EXPECT_EQ(roundTrip(values)->text, std::nullopt);
    values.text = "";
    EXPECT_EQ(roundTrip(values)->text, "");
}

TEST(NSKeyedArchiver, DataKeepsItsBytesAtEveryLengthOfLength) {
    for (const std::size_t size : {0u, 1u, 14u, 15u, 255u, 256u, 65535u, 65536u}) {
        Values values;
        values.data.assign(size, 0xA5);
        EXPECT_EQ(roundTrip(values)->data, values.data) << size;
    }
}

/// An archive of two data values with `more` behind them, copied into it or taken over.
template <class More>
NSDataPieces archiveOfData(bool takenOver, std::vector<NSData> values, More&& more) {
    NSKeyedArchiver archiver;
    for (std::size_t i = 0; i != values.size(); ++i) {
        static constexpr std::string_view keys[] = {"one", "two", "three"};
        if (takenOver)
            archiver.encodeOwnedData(std::move(values[i]), keys[i]);
        else
            archiver.encodeData(NSDataView(values[i]), keys[i]);
    }
    more(archiver);
    return archiver.finishEncodingInPieces();
}

NSData joined(const NSDataPieces& pieces) {
    auto bytes = pieces.first;
    for (const auto& piece : pieces.others)
        bytes.insert(bytes.end(), piece.begin(), piece.end());
    EXPECT_EQ(bytes.size(), pieces.size());
    return bytes;
}

TEST(NSKeyedArchiver, DataThatIsTakenOverGivesTheSameBytesInPieces) {
    const auto nothing = [](NSKeyedArchiver&) {};
    const auto some = [](NSKeyedArchiver& archiver) {
        archiver.encodeString(std::string_view("behind"), "behind");
    };
    const auto veryLarge = [](NSKeyedArchiver& archiver) {
        archiver.encodeStrings(std::vector<std::string>(40000, "a text"), "texts");
    };
    for (const std::size_t size : {10, 70000, 300000, 20000000}) {
        const std::vector<NSData> values{NSData(size, 'a'), NSData(100, 'b'),
                                         NSData(size + 1, 'c')};
        EXPECT_EQ(joined(archiveOfData(true, values, nothing)),
                  joined(archiveOfData(false, values, nothing)));
        EXPECT_EQ(joined(archiveOfData(true, values, some)),
                  joined(archiveOfData(false, values, some)));
        EXPECT_EQ(joined(archiveOfData(true, values, veryLarge)),
                  joined(archiveOfData(false, values, veryLarge)));
    }
}

TEST(NSKeyedArchiver, LargeDataThatIsTakenOverIsNotCopied) {
    NSData large(1000000, 'x');
    const auto* const place = large.data();
    NSKeyedArchiver archiver;
    archiver.encodeOwnedData(std::move(large), "data");
    const auto pieces = archiver.finishEncodingInPieces();
    ASSERT_EQ(pieces.others.size(), 2U);
    EXPECT_EQ(pieces.others[0].data(), place);
    EXPECT_LT(pieces.first.size() + pieces.others[1].size(), 300U);
}

TEST(NSKeyedArchiver, AnArchiveThatIsJoinedHoldsTheDataThatWasTakenOver) {
    NSKeyedArchiver archiver;
    archiver.encodeOwnedData(NSData(1000000, 'x'), "data");
    const auto bytes = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(bytes);
    EXPECT_EQ(unarchiver.decodeData("data"), NSData(1000000, 'x'));
}

TEST(NSKeyedArchiver, UuidsUrlsAndIndexPathsAreEqualAfterwards) {
    Values values;
    values.uuid = NSUUID::initWithUUIDString("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    values.url = NSURL::fileURLWithPath("/tmp/\xFF not UTF-8 %41\xC3\xA9");
    values.path = NSIndexPath{{0, 7, std::numeric_limits<std::uint64_t>::max()}};
    values.urls = {*values.url, *NSURL::URLWithString("https://example.org/a")};
    const auto copy = roundTrip(values);
    EXPECT_EQ(copy->uuid, values.uuid);
    EXPECT_EQ(copy->url, values.url);
    EXPECT_EQ(copy->path, values.path);
    EXPECT_EQ(copy->urls, values.urls);
    EXPECT_EQ(roundTrip(Values())->uuid, std::nullopt);
    EXPECT_EQ(roundTrip(Values())->url, std::nullopt);
    EXPECT_EQ(roundTrip(Values())->path, NSIndexPath());
}

TEST(NSKeyedArchiver, AnErrorKeepsDomainCodeAndEveryKindOfUserInfo) {
    Values values;
    const auto inner = NSError::errorWithDomain(NSCocoaErrorDomain, -5, {});
    values.error = NSError::errorWithDomain(
        NSPOSIXErrorDomain, 13,
        {{NSLocalizedDescriptionKey, std::string("Größe")},
         {NSURLErrorKey, NSURL::fileURLWithPath("/a b")},
         {NSUnderlyingErrorKey, inner},
         {NSMultipleUnderlyingErrorsKey, std::vector<NSErrorRef>{inner, nullptr, inner}},
         {"none", std::vector<NSErrorRef>()},
         {"nothing", NSErrorRef()},
         {"count", std::int64_t{-1}}});
    const auto copy = roundTrip(values)->error;
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->isEqual(values.error.get()));
    EXPECT_EQ(roundTrip(Values())->error, nullptr);
}

TEST(NSKeyedArchiver, ArraysOfObjectsAreRestoredAtEveryReferenceSize) {
    for (const int count : {1, 300, 70000}) {
        Node node;
        for (int i = 0; i < count; ++i) {
            auto child = std::make_shared<Node>();
            child->number = i;
            node.objects.push_back(child);
        }
        const auto copy = roundTrip(node);
        ASSERT_EQ(copy->objects.size(), static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(
                std::static_pointer_cast<Node>(copy->objects[static_cast<std::size_t>(i)])->number,
                i);
        }
    }
}

TEST(NSKeyedArchiver, EmptyArraysAreRestoredEmpty) {
    const auto copy = roundTrip(Values());
    EXPECT_TRUE(copy->urls.empty());
    EXPECT_TRUE(copy->strings.empty());
    EXPECT_TRUE(copy->integers.empty());
}

TEST(NSKeyedArchiver, NestedArchivesAreRestoredInOrder) {
    Node node;
    for (int i = 0; i < 300; ++i) {
        auto child = std::make_shared<Node>();
        child->number = i;
        child->archives.push_back(std::make_shared<Node>());
        node.archives.push_back(child);
    }
    const auto copy = roundTrip(node);
    ASSERT_EQ(copy->archives.size(), 300u);
    for (int i = 0; i < 300; ++i) {
        const auto child =
            std::static_pointer_cast<Node>(copy->archives[static_cast<std::size_t>(i)]);
        EXPECT_EQ(child->number, i);
        EXPECT_EQ(child->archives.size(), 1u);
    }
}

TEST(NSKeyedArchiver, AnObjectReachedTwiceIsWrittenOnceAndSharedAfterwards) {
    Node node;
    auto shared = std::make_shared<Node>();
    shared->number = 5;
    node.next = shared;
    const auto once = NSKeyedArchiver::archivedDataWithRootObject(node).size();
    node.objects = {shared, shared};
    const auto copy = roundTrip(node);
    EXPECT_EQ(copy->objects[0], copy->next);
    EXPECT_EQ(copy->objects[1], copy->next);
    EXPECT_LT(NSKeyedArchiver::archivedDataWithRootObject(node).size(), once + 120);
}

TEST(NSKeyedArchiver, AVeryLargeArrayKeepsWhatItSharesWithTheRestOfAMessage) {
    const auto before = std::make_shared<Node>();
    before->number = -1;
    const auto within = std::make_shared<Node>();
    within->number = -2;
    std::vector<std::shared_ptr<Node>> nodes{before, within};
    for (int i = 0; i < 40000; ++i) {
        nodes.push_back(std::make_shared<Node>());
        nodes.back()->number = i;
        nodes.back()->next = within;
    }
    nodes.push_back(within);
    NSKeyedArchiver archiver;
    archiver.encodeString(std::string_view("text"), "text");
    archiver.encodeObject(before.get(), "before");
    archiver.encodeObjects(nodes, "nodes");
    archiver.encodeObject(within.get(), "within");
    archiver.encodeObject(nullptr, "nil");
    archiver.encodeInt64(7, "number");
    const auto bytes = archiver.finishEncoding();

    NSKeyedUnarchiver unarchiver(bytes);
    const auto copies = unarchiver.decodeObjects("nodes", Node::classes());
    ASSERT_EQ(copies.size(), nodes.size());
    for (std::size_t i = 0; i < copies.size(); ++i) {
        const auto& copy = static_cast<const Node&>(*copies[i]);
        ASSERT_EQ(copy.number, nodes[i]->number);
        ASSERT_EQ(copy.next, nodes[i]->next ? copies[1] : nullptr);
    }
    EXPECT_EQ(copies.back(), copies[1]);
    EXPECT_EQ(unarchiver.decodeObject("before", Node::classes()), copies[0]);
    EXPECT_EQ(unarchiver.decodeObject("within", Node::classes()), copies[1]);
    EXPECT_EQ(unarchiver.decodeObject("nil", Node::classes()), nullptr);
    EXPECT_EQ(unarchiver.decodeString("text"), "text");
    EXPECT_EQ(unarchiver.decodeInt64("number"), 7);
}

TEST(NSKeyedArchiver, AVeryLargeArrayMayStandInANestedArchive) {
    const auto inner = std::make_shared<Node>();
    for (int i = 0; i < 40000; ++i)
        inner->objects.push_back(std::make_shared<Node>());
    Node node;
    node.number = 5;
    node.archives = {inner, inner};
    const auto copy = roundTrip(node);
    EXPECT_EQ(copy->number, 5);
    ASSERT_EQ(copy->archives.size(), 2u);
    EXPECT_EQ(static_cast<const Node&>(*copy->archives[1]).objects.size(), 40000u);
}

TEST(NSKeyedArchiver, AnObjectThatHoldsItselfThrowsInvalidArgument) {
    auto node = std::make_shared<Node>();
    node->next = node;
    EXPECT_THROW(NSKeyedArchiver::archivedDataWithRootObject(*node), NSException);
    node->next = nullptr;
    EXPECT_EQ(roundTrip(*node)->number, 0);
}

TEST(NSKeyedArchiver, AClassWithoutSecureCodingThrowsInvalidArgument) {
    try {
        NSKeyedArchiver::archivedDataWithRootObject(NSObject());
        FAIL();
    } catch (const NSException& e) {
        EXPECT_EQ(e.name(), NSInvalidArgumentException);
    }
}

TEST(NSKeyedArchiver, TheSameObjectGivesTheSameBytes) {
    Values values;
    values.text = "text";
    values.uuid = NSUUID(NSUUID::Bytes{1, 2, 3});
    EXPECT_EQ(NSKeyedArchiver::archivedDataWithRootObject(values),
              NSKeyedArchiver::archivedDataWithRootObject(values));
}

TEST(NSKeyedArchiver, AMessageHoldsSeveralKeys) {
    NSKeyedArchiver archiver;
    archiver.encodeInt64(7, "first");
    archiver.encodeString(std::string_view("x"), "second");
    archiver.encodeObject(nullptr, "third");
    const auto bytes = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(bytes);
    EXPECT_EQ(unarchiver.decodeInt64("first"), 7);
    EXPECT_EQ(unarchiver.decodeString("second"), "x");
    EXPECT_TRUE(unarchiver.containsValueForKey("third"));
    EXPECT_FALSE(unarchiver.containsValueForKey("fourth"));
    EXPECT_EQ(unarchiver.decodeObject("third", {&Node::classObject()}), nullptr);
    EXPECT_FALSE(unarchiver.isArray("third"));
}

}  // namespace
}  // namespace morvane::test
