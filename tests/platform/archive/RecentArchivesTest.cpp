// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/RecentArchives.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "ArchiveTestModels.h"

/// Archives that stand in others again and again: from the third time on their objects are made of
/// values that are known, and nobody can tell.
namespace morvane::test {
namespace {

NSData shelf(const std::vector<std::shared_ptr<Label>>& labels) {
    NSKeyedArchiver coder;
    coder.encodeArchives(labels, "labels", Label::front());
    return coder.finishEncoding();
}

/// Whose number no other test has.
std::shared_ptr<Label> newLabel(std::optional<std::string> text = "a text") {
    static std::int64_t number = 0;
    auto label = std::make_shared<Label>();
    label->text = std::move(text);
    label->number = ++number * 1000;
    label->other = -1;
    return label;
}

/// What came of reading a shelf. Without the front nothing is remembered.
struct Reading {
    std::vector<std::shared_ptr<Label>> labels;
    std::string failure;
    int read = 0;
    int made = 0;
    NSDecodingBudget left;
};

Reading readShelf(const NSData& archive, const NSDecodingBudget& most = {},
                  const NSClass& root = Label::classObject(),
                  const NSArchiveFront* front = &Label::front()) {
    Label::read = Label::made = 0;
    Reading reading;
    try {
        NSKeyedUnarchiver coder(archive, most);
        for (auto& label : front ? coder.decodeArchives("labels", root, *front)
                                 : coder.decodeArchives("labels", root))
            reading.labels.push_back(std::static_pointer_cast<Label>(label));
        reading.left = coder.budgetLeft();
    } catch (const NSArchiveFailure& failure) {
        reading.failure = failure.what();
    }
    reading.read = Label::read;
    reading.made = Label::made;
    return reading;
}

void expectSame(const Label& a, const Label& b) {
    EXPECT_EQ(a.text, b.text);
    EXPECT_EQ(a.number, b.number);
    EXPECT_EQ(a.other, b.other);
}

/// Reads it as often as it takes to be known.
void learn(const NSData& archive) {
    readShelf(archive);
    EXPECT_EQ(readShelf(archive).read, 1);
}

TEST(RecentArchive, IsReadTwiceAndThenMadeOfItsValues) {
    for (const auto& text : {std::optional<std::string>(), std::optional<std::string>(""),
                             std::optional<std::string>("sch\u00f6n")}) {
        const auto label = newLabel(text);
        const auto archive = shelf({label});
        std::vector<Reading> readings;
        for (int i = 0; i != 5; ++i)
            readings.push_back(readShelf(archive));
        for (int i = 0; i != 5; ++i) {
            const auto& reading = readings[static_cast<std::size_t>(i)];
            EXPECT_EQ(reading.read, i < 2 ? 1 : 0);
            // The second reading tries whether the values tell it whole.
            EXPECT_EQ(reading.made, i < 1 ? 0 : 1);
            ASSERT_EQ(reading.labels.size(), 1u);
            expectSame(*reading.labels[0], *label);
            EXPECT_EQ(reading.left.bytes, readings[0].left.bytes);
            EXPECT_EQ(reading.left.objects, readings[0].left.objects);
            EXPECT_EQ(reading.left.depth, readings[0].left.depth);
        }
        EXPECT_NE(readings[3].labels[0], readings[4].labels[0]);
    }
}

TEST(RecentArchive, IsKnownWhereverItStands) {
    const auto label = newLabel();
    const auto reading = readShelf(shelf({label, newLabel(), label, label, newLabel(), label}));
    ASSERT_EQ(reading.labels.size(), 6u);
    EXPECT_EQ(reading.read, 4);
    for (const std::size_t i : {0, 2, 3, 5})
        expectSame(*reading.labels[i], *label);
}

TEST(RecentArchive, WithAnyOtherByteIsReadAndRefusedAsBefore) {
    const auto label = newLabel();
    const auto archive = shelf({label});
    learn(archive);
    for (std::size_t at = 0; at != archive.size(); ++at) {
        auto changed = archive;
        changed[at] ^= 1;
        const auto first = readShelf(changed, {}, Label::classObject(), nullptr);
        for (int i = 0; i != 3; ++i) {
            const auto again = readShelf(changed);
            EXPECT_EQ(again.failure, first.failure);
            ASSERT_EQ(again.labels.size(), first.labels.size());
            for (std::size_t j = 0; j != first.labels.size(); ++j)
                expectSame(*again.labels[j], *first.labels[j]);
        }
    }
}

TEST(RecentArchive, OfAnObjectThatHoldsMoreIsReadEachTime) {
    const auto label = newLabel();
    label->next = newLabel();
    const auto archive = shelf({label});
    for (int i = 0; i != 5; ++i) {
        const auto reading = readShelf(archive);
        EXPECT_EQ(reading.read, 2);
        ASSERT_NE(reading.labels.at(0)->next, nullptr);
        expectSame(*reading.labels[0]->next, *label->next);
    }
}

TEST(RecentArchive, WithMoreInItThanItsObjectTellsIsReadEachTime) {
    // Nobody asks for the key.
    ArchiveBuilder inner;
    const auto number = inner.list.integer(7);
    inner.add(0);
    inner.objects[1] =
        inner.dictionary({{"number", number},
                          {"unknown", number},
                          {"$class", inner.classNamed("Label", {"Label", "NSObject"})}});
    const auto bytes = inner.finish();
    ArchiveBuilder outer;
    outer.add(0);
    const auto data = outer.uid(outer.add(outer.list.data(NSDataView(bytes))));
    const auto classes = outer.classNamed("NSArray", {"NSArray", "NSObject"});
    outer.objects[1] =
        outer.dictionary({{"NS.objects", outer.list.array(std::vector<ArchiveBuilder::Ref>{data})},
                          {"$class", classes}});
    const auto archive = outer.finish();
    for (int i = 0; i != 5; ++i) {
        Label::read = Label::made = 0;
        NSKeyedUnarchiver coder(archive);
        const auto labels = coder.decodeArchives("root", Label::classObject(), Label::front());
        ASSERT_EQ(labels.size(), 1u);
        EXPECT_EQ(static_cast<const Label&>(*labels[0]).number, 7);
        EXPECT_EQ(Label::read, 1);
    }
}

TEST(RecentArchive, IsOfItsClassOnly) {
    const auto archive = shelf({newLabel()});
    learn(archive);
    EXPECT_NE(readShelf(archive, {}, Node::classObject())
                  .failure.find("an object of class \"Label\" is not allowed there"),
              std::string::npos);
}

TEST(RecentArchive, IsRefusedByABudgetThatReadingItWouldHaveSpent) {
    const auto archive = shelf({newLabel()});
    const NSDecodingBudget whole = NSDecodingBudget::forArchiveOfSize(archive.size(), {});
    const auto left = readShelf(archive).left;
    EXPECT_EQ(readShelf(archive).read, 1);
    for (const bool isBytes : {true, false}) {
        // One byte or object less than it takes.
        auto most = whole;
        auto& part = isBytes ? most.bytes : most.objects;
        part -= (isBytes ? left.bytes : left.objects) + 1;
        EXPECT_NE(readShelf(archive, most).failure.find("the archive unfolds into too many"),
                  std::string::npos);
        ++part;
        EXPECT_EQ(readShelf(archive, most).failure, "");
    }
    auto flat = whole;
    flat.depth = 1;
    EXPECT_EQ(readShelf(archive, flat).failure, "");
    EXPECT_EQ(readShelf(archive, flat).read, 1);
    EXPECT_EQ(readShelf(archive).read, 0);
}

TEST(RecentArchive, ThatIsLongIsNotRemembered) {
    const auto archive = shelf({newLabel(std::string(RecentArchives::mostBytes, 'x'))});
    for (int i = 0; i != 5; ++i)
        EXPECT_EQ(readShelf(archive).read, 1);
}

TEST(RecentArchive, GivesItsPlaceToOthers) {
    // Far more than there is room for, so that every place is taken by another.
    const auto label = newLabel();
    const auto archive = shelf({label});
    learn(archive);
    EXPECT_EQ(readShelf(archive).read, 0);
    for (std::size_t i = 0; i != 20 * RecentArchives::mostArchives; ++i)
        readShelf(shelf({newLabel()}));
    EXPECT_EQ(readShelf(archive).read, 1);
    expectSame(*readShelf(archive).labels.at(0), *label);
    EXPECT_EQ(readShelf(archive).read, 0);
}

TEST(RecentArchive, IsReadByManyThreadsAtOnce) {
    std::vector<std::shared_ptr<Label>> labels;
    for (int i = 0; i != 40; ++i)
        labels.push_back(newLabel());
    const auto archive = shelf(labels);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread != 4; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i != 50; ++i) {
                const auto reading = readShelf(archive);
                ASSERT_EQ(reading.labels.size(), labels.size());
                for (std::size_t j = 0; j != labels.size(); ++j)
                    expectSame(*reading.labels[j], *labels[j]);
            }
        });
    }
}

}  // namespace
}  // namespace morvane::test
