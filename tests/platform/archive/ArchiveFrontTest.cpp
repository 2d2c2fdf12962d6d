// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/fast/ArchiveFront.h>
#include <gtest/gtest.h>

#include "ArchiveTestModels.h"

/// Archives that stand in another one by the dozen, and begin with what all of them have.
namespace morvane::test {
namespace {

/// Holds others in archives that begin with a front, and reads them with one or without.
class Fronted final : public NSObject {
  public:
    enum class Reads { withTheFront, withAnother, withNone };

    std::int64_t number = 0;
    std::optional<std::string> text;
    std::vector<std::shared_ptr<NSObject>> archives;

    static Reads& reads() {
        static auto reads = Reads::withTheFront;
        return reads;
    }
    static const NSArchiveFront& front() {
        static const NSArchiveFront front({"root", "number", "text"}, {&classObject()});
        return front;
    }
    static const NSArchiveFront& otherFront() {
        static const NSArchiveFront front({"number", "root"}, {&Node::classObject()});
        return front;
    }
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        auto object = std::make_shared<Fronted>();
        object->number = coder.decodeInt64("number");
        object->text = coder.decodeString("text");
        if (reads() == Reads::withNone)
            object->archives = coder.decodeArchives("archives", classObject());
        else
            object->archives = coder.decodeArchives(
                "archives", classObject(), reads() == Reads::withTheFront ? front() : otherFront());
        return object;
    }
    static const NSClass& classObject() {
        static const NSClass c{"Fronted", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeInt64(number, "number");
        coder.encodeString(text, "text");
        if (!archives.empty())
            coder.encodeArchives(archives, "archives", front());
    }
    bool isEqual(const NSObject* other) const override {
        const auto* fronted = dynamic_cast<const Fronted*>(other);
        return fronted && fronted->number == number && fronted->text == text &&
               std::equal(archives.begin(), archives.end(), fronted->archives.begin(),
                          fronted->archives.end(),
                          [](const auto& a, const auto& b) { return a->isEqual(b.get()); });
    }
};

std::shared_ptr<Fronted> threeArchives() {
    auto outer = std::make_shared<Fronted>();
    for (int i = 1; i <= 3; ++i) {
        auto inner = std::make_shared<Fronted>();
        inner->number = 300 * i;
        inner->text = std::string(static_cast<std::size_t>(100 * i), 'x');
        outer->archives.push_back(std::move(inner));
    }
    return outer;
}

std::vector<std::size_t> placesOf(std::string_view text, const NSData& bytes) {
    const std::string_view all(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    std::vector<std::size_t> places;
    for (auto at = all.find(text); at != all.npos; at = all.find(text, at + 1))
        places.push_back(at);
    return places;
}

std::shared_ptr<Fronted> decoded(const NSData& archive) {
    NSErrorRef error;
    auto object =
        NSKeyedUnarchiver::unarchivedObjectOfClasses({&Fronted::classObject()}, archive, &error);
    EXPECT_EQ(error, nullptr);
    return std::static_pointer_cast<Fronted>(object);
}

class ArchiveFronts : public ::testing::Test {
  protected:
    ~ArchiveFronts() override { Fronted::reads() = Fronted::Reads::withTheFront; }
};

TEST_F(ArchiveFronts, StandAtTheBeginningOfEachArchive) {
    const auto archive = NSKeyedArchiver::archivedDataWithRootObject(*threeArchives());
    const std::string_view keys[] = {"root", "number", "text"};
    const NSClass* const classes[] = {&Fronted::classObject()};
    const ArchiveFront front(keys, classes);
    EXPECT_EQ(placesOf(front.bytes(1), archive).size(), 3u);
    EXPECT_EQ(placesOf("bplist00", archive).size(), 4u);
    EXPECT_EQ(placesOf("Fronted", archive).size(), 4u);
}

TEST_F(ArchiveFronts, AreInNoListWhoseOffsetsAreTooNarrow) {
    const std::string longKey(200, 'k');
    const std::string_view keys[] = {"root", longKey, "number"};
    const ArchiveFront longer(keys, {});
    ASSERT_GT(longer.bytes(1).size(), 255u);
    EXPECT_TRUE(longer.offsets(1, 1).empty());
    EXPECT_EQ(longer.offsets(1, 2).size(), 2u * longer.count());
    const ArchiveFront shorter(std::span<const std::string_view>(keys).first(1), {});
    ASSERT_LT(shorter.bytes(1).size(), 255u);
    EXPECT_EQ(shorter.offsets(1, 1).size(), shorter.count());
}

TEST_F(ArchiveFronts, AreReadWithThemWithAnotherAndWithNone) {
    const auto outer = threeArchives();
    const auto archive = NSKeyedArchiver::archivedDataWithRootObject(*outer);
    for (const auto reads :
         {Fronted::Reads::withTheFront, Fronted::Reads::withAnother, Fronted::Reads::withNone}) {
        Fronted::reads() = reads;
        EXPECT_TRUE(outer->isEqual(decoded(archive).get()));
    }
}

TEST_F(ArchiveFronts, HoldAlsoForArchivesOfVeryManyValues) {
    Fronted outer;
    auto inner = std::make_shared<Fronted>();
    for (int i = 0; i < 300; ++i) {
        inner->archives.push_back(std::make_shared<Fronted>());
        std::static_pointer_cast<Fronted>(inner->archives.back())->number = i;
    }
    outer.archives.push_back(inner);
    EXPECT_TRUE(outer.isEqual(decoded(NSKeyedArchiver::archivedDataWithRootObject(outer)).get()));
}

TEST_F(ArchiveFronts, WithAChangedKeyAreOtherKeys) {
    auto archive = NSKeyedArchiver::archivedDataWithRootObject(*threeArchives());
    const auto keys = placesOf("number", archive);
    ASSERT_EQ(keys.size(), 4u);
    archive[keys[2]] = 'N';
    const auto copy = decoded(archive);
    const auto numberAt = [&](std::size_t i) {
        return static_cast<const Fronted&>(*copy->archives.at(i)).number;
    };
    EXPECT_EQ(numberAt(0), 300);
    EXPECT_EQ(numberAt(1), 0);
    EXPECT_EQ(numberAt(2), 900);
}

TEST_F(ArchiveFronts, WithAChangedClassAreRefused) {
    auto archive = NSKeyedArchiver::archivedDataWithRootObject(*threeArchives());
    const auto classes = placesOf("Fronted", archive);
    ASSERT_EQ(classes.size(), 4u);
    for (const auto at : classes) {
        auto changed = archive;
        changed[at] = 'f';
        EXPECT_EQ(failure(changed, {&Fronted::classObject()}),
                  refusal("root", "an object of class \"fronted\" is not allowed there"));
    }
}

TEST_F(ArchiveFronts, AllowNoClassThatIsNotAllowedThere) {
    class Sender final : public NSObject {
      public:
        std::vector<std::shared_ptr<Fronted>> archives{std::make_shared<Fronted>()};
        const NSClass& objectClass() const override {
            static const NSClass c{"Reader", &NSObject::classObject(),
                                   [](NSKeyedUnarchiver& coder) -> std::shared_ptr<NSObject> {
                                       coder.decodeArchives("archives", Node::classObject(),
                                                            Fronted::front());
                                       return nullptr;
                                   }};
            return c;
        }
        void encodeWithCoder(NSKeyedArchiver& coder) const override {
            coder.encodeArchives(archives, "archives", Fronted::front());
        }
    };
    const Sender sender;
    EXPECT_EQ(failure(NSKeyedArchiver::archivedDataWithRootObject(sender), {&sender.objectClass()}),
              refusal("root", "an object of class \"Fronted\" is not allowed there"));
}

/// An archive of a node whose number stands at that key.
NSData nodeWithKey(std::string_view key, std::int64_t number) {
    ArchiveBuilder builder;
    const auto value = builder.list.integer(number);
    builder.add(0);
    const auto classReference = builder.classNamed("Node", {"Node", "NSObject"});
    builder.objects[1] = builder.dictionary({{key, value}, {"$class", classReference}});
    return builder.finish();
}

TEST(NestedArchives, WithTheSameNumbersAndOtherKeysAreToldApart) {
    ArchiveBuilder builder;
    builder.add(0);
    builder.add(0);
    std::vector<ArchiveBuilder::Ref> archives;
    const std::pair<std::string_view, std::int64_t> contents[] = {
        {"number", 1}, {"numbre", 2}, {"number", 3}};
    for (const auto& [key, number] : contents) {
        const auto bytes = nodeWithKey(key, number);
        archives.push_back(builder.uid(builder.add(builder.list.data(NSDataView(bytes)))));
    }
    builder.objects[2] =
        builder.dictionary({{"NS.objects", builder.list.array(archives)},
                            {"$class", builder.classNamed("NSArray", {"NSArray", "NSObject"})}});
    builder.objects[1] =
        builder.dictionary({{"archives", builder.uid(2)},
                            {"$class", builder.classNamed("Node", {"Node", "NSObject"})}});
    NSErrorRef error;
    const auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses({&Node::classObject()},
                                                                     builder.finish(), &error);
    ASSERT_EQ(error, nullptr);
    std::vector<std::int64_t> numbers;
    for (const auto& each : static_cast<const Node&>(*object).archives)
        numbers.push_back(static_cast<const Node&>(*each).number);
    EXPECT_EQ(numbers, (std::vector<std::int64_t>{1, 0, 3}));
}

TEST(NestedArchives, MayHaveKeysOfAnyLength) {
    for (const std::size_t length : {1u, 64u, 65u, 300u, 70000u}) {
        const std::string key(length, 'k');
        const auto archive = nodeWithKey(key, 7);
        NSKeyedUnarchiver coder(archive);
        static std::string_view asked;
        static std::int64_t found;
        asked = key;
        found = 0;
        static const NSClass node{"Node", &NSObject::classObject(),
                                  [](NSKeyedUnarchiver& c) -> std::shared_ptr<NSObject> {
                                      found = c.decodeInt64(asked);
                                      return std::make_shared<Node>();
                                  }};
        coder.decodeObject("root", {&node});
        EXPECT_EQ(found, 7);
    }
}

}  // namespace
}  // namespace morvane::test
