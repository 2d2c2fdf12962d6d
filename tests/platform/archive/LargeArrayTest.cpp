// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/PropertyListReader.h>
#include <MorvaneOperation/platform/archive/fast/LargeMemory.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "ArchiveTestModels.h"
#include "PlainUnarchiver.h"

/// Arrays of so many objects, and lists of so many values, that they have a way of their own.
namespace morvane::test {
namespace {

using Nodes = std::vector<std::shared_ptr<Node>>;

Nodes numberedNodes(std::int64_t count) {
    Nodes nodes;
    for (std::int64_t i = 0; i < count; ++i) {
        nodes.push_back(std::make_shared<Node>());
        nodes.back()->number = i;
    }
    return nodes;
}

NSData archiveOf(const Nodes& nodes) {
    NSKeyedArchiver archiver;
    archiver.encodeObjects(nodes, "nodes");
    return archiver.finishEncoding();
}

Nodes decoded(NSKeyedUnarchiver& unarchiver) {
    return unarchiver.decodeObjects<Node>("nodes", Node::classes());
}

Nodes roundTrip(const Nodes& nodes) {
    const auto archive = archiveOf(nodes);
    NSKeyedUnarchiver unarchiver(archive);
    return decoded(unarchiver);
}

TEST(LargeArray, ItsObjectsAreHeldByItAlone) {
    const auto archive = archiveOf(numberedNodes(2000));
    NSKeyedUnarchiver unarchiver(archive);
    const auto copies = decoded(unarchiver);
    ASSERT_EQ(copies.size(), 2000u);
    for (std::size_t i = 0; i < copies.size(); ++i) {
        ASSERT_EQ(copies[i]->number, static_cast<std::int64_t>(i));
        ASSERT_EQ(copies[i].use_count(), 1);
    }
}

/// One that its coder makes, as those of large arrays are.
class Sized final : public NSObject {
  public:
    explicit Sized(std::int64_t n) : number(n) {}
    const std::int64_t number;

    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        return coder.makeObject<Sized>(coder.decodeInt64("number"));
    }
    static const NSClass& classObject() {
        static const NSClass c{"Sized", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeInt64(number, "number");
    }
};

/// One of more fields than can be written and read together.
class Wide final : public NSObject {
  public:
    explicit Wide(std::int64_t n) : number(n) {}
    const std::int64_t number;

    static constexpr NSPlainCoding::Field fields[] = {
        {"a", NSPlainCoding::Kind::integer}, {"b", NSPlainCoding::Kind::integer},
        {"c", NSPlainCoding::Kind::integer}, {"d", NSPlainCoding::Kind::integer},
        {"e", NSPlainCoding::Kind::integer}, {"f", NSPlainCoding::Kind::integer},
        {"g", NSPlainCoding::Kind::integer}, {"h", NSPlainCoding::Kind::integer}};
    static_assert(std::size(fields) > NSPlainCoding::mostFields);

    static const NSClass& classObject() {
        static constexpr NSPlainCoding coding{
            fields, [](const NSObject&, NSPlainCoding::Values&) { ADD_FAILURE(); },
            [](NSKeyedUnarchiver&, const NSPlainCoding::Values&) {
                ADD_FAILURE();
                return std::shared_ptr<NSObject>();
            }};
        static const NSClass c{"Wide", &NSObject::classObject(),
                               [](NSKeyedUnarchiver& coder) -> std::shared_ptr<NSObject> {
                                   return coder.makeObject<Wide>(coder.decodeInt64("h"));
                               },
                               false, &coding};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        for (const auto& field : fields)
            coder.encodeInt64(number, field.key);
    }
};

TEST(LargeArray, OfObjectsOfMoreFieldsThanAreReadTogetherIsReadOneByOne) {
    std::vector<std::shared_ptr<Wide>> all;
    for (std::int64_t i = 0; i < 40000; ++i)
        all.push_back(std::make_shared<Wide>(i));
    NSKeyedArchiver archiver;
    archiver.encodeObjects(all, "all");
    const auto archive = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(archive);
    const auto copies =
        unarchiver.decodeObjects<Wide>("all", {&NSArrayClass, &Wide::classObject()});
    ASSERT_EQ(copies.size(), all.size());
    for (std::size_t i = 0; i < copies.size(); ++i)
        ASSERT_EQ(copies[i]->number, static_cast<std::int64_t>(i));
}

TEST(LargeArray, OfSeveralMegabytesIsOutlivedByAnyOfItsObjects) {
    std::vector<std::shared_ptr<Sized>> sizes;
    for (std::int64_t i = 0; i < 100000; ++i)
        sizes.push_back(std::make_shared<Sized>(i));
    NSKeyedArchiver archiver;
    archiver.encodeObjects(sizes, "sizes");
    const auto archive = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(archive);
    auto copies = unarchiver.decodeObjects<Sized>("sizes", {&NSArrayClass, &Sized::classObject()});
    ASSERT_EQ(copies.size(), sizes.size());
    std::vector<std::shared_ptr<Sized>> kept;
    for (std::size_t i = 0; i < copies.size(); i += 1000)
        kept.push_back(std::move(copies[i]));
    copies.clear();
    for (std::size_t i = 0; i < kept.size(); ++i)
        ASSERT_EQ(kept[i]->number, static_cast<std::int64_t>(1000 * i));
}

TEST(LargeArray, DecodedTwiceItIsOfOtherObjectsOfTheSameContent) {
    const auto archive = archiveOf(numberedNodes(2000));
    NSKeyedUnarchiver unarchiver(archive);
    auto copies = decoded(unarchiver);
    copies.resize(1000);
    const auto others = decoded(unarchiver);
    ASSERT_EQ(others.size(), 2000u);
    for (std::size_t i = 0; i < others.size(); ++i)
        ASSERT_EQ(others[i]->number, static_cast<std::int64_t>(i));
    EXPECT_NE(others[0], copies[0]);
}

TEST(LargeArray, AnElementThatAnotherHoldsIsTheSameObject) {
    auto nodes = numberedNodes(2000);
    for (std::size_t i = 1; i < nodes.size(); ++i)
        nodes[i]->next = nodes[i / 2];
    const auto copies = roundTrip(nodes);
    ASSERT_EQ(copies.size(), nodes.size());
    for (std::size_t i = 1; i < copies.size(); ++i)
        ASSERT_EQ(copies[i]->next, copies[i / 2]);
}

TEST(LargeArray, AnElementThatAnEarlierOneHoldsIsTheSameObject) {
    auto nodes = numberedNodes(2000);
    nodes[3]->next = nodes[1500];
    nodes[4]->next = nodes[2];
    const auto copies = roundTrip(nodes);
    ASSERT_EQ(copies.size(), nodes.size());
    EXPECT_EQ(copies[3]->next, copies[1500]);
    EXPECT_EQ(copies[4]->next, copies[2]);
    EXPECT_EQ(copies[1999]->number, 1999);
}

TEST(LargeArray, AnElementThatStandsThereTwiceIsTheSameObject) {
    auto nodes = numberedNodes(2000);
    for (std::size_t i = 0; i < 1000; ++i)
        nodes.insert(nodes.begin() + 1500, nodes[i]);
    const auto copies = roundTrip(nodes);
    ASSERT_EQ(copies.size(), nodes.size());
    for (std::size_t i = 0; i < copies.size(); ++i) {
        ASSERT_EQ(copies[i]->number, nodes[i]->number);
        ASSERT_EQ(copies[i], copies[static_cast<std::size_t>(nodes[i]->number) +
                                    (nodes[i]->number < 1500 ? 0 : 1000)]);
    }
}

TEST(LargeArray, ItStandsUnderTwoKeysAndIsOfTheSameObjects) {
    const auto nodes = numberedNodes(2000);
    NSKeyedArchiver archiver;
    archiver.encodeObjects(nodes, "nodes");
    archiver.encodeObjects(nodes, "others");
    const auto archive = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(archive);
    const auto copies = decoded(unarchiver);
    EXPECT_EQ(unarchiver.decodeObjects<Node>("others", Node::classes()), copies);
}

TEST(LargeArray, WhatTakesMuchIsWrittenWhileItsElementsComeAndHoldsTheSameObjects) {
    // Of some kilobytes each: it is known only after a few elements how much all will take.
    auto nodes = numberedNodes(300);
    for (auto& node : nodes) {
        for (const auto& part : numberedNodes(100))
            node->archives.push_back(part);
        node->objects = {nodes[2], nodes[290]};
        node->next = nodes[200];
    }
    nodes[200]->next = nullptr;
    for (const auto held : {2, 200, 290})
        nodes[static_cast<std::size_t>(held)]->objects.clear();
    nodes[2]->next = nodes[290]->next = nullptr;
    nodes.push_back(nodes[5]);
    const auto archive = archiveOf(nodes);
    constexpr std::size_t referenceSizeAt = 32 - 7;
    EXPECT_GT(archive.size(), std::size_t{1} << 20);
    EXPECT_EQ(archive[archive.size() - referenceSizeAt], 3);
    NSKeyedUnarchiver unarchiver(archive);
    const auto copies = decoded(unarchiver);
    ASSERT_EQ(copies.size(), nodes.size());
    EXPECT_EQ(copies[300], copies[5]);
    EXPECT_EQ(copies[200]->next, nullptr);
    for (std::size_t i = 0; i < 300; ++i) {
        ASSERT_EQ(copies[i]->number, static_cast<std::int64_t>(i));
        ASSERT_EQ(copies[i]->archives.size(), 100u);
        ASSERT_EQ(static_cast<const Node&>(*copies[i]->archives[99]).number, 99);
        if (i == 2 || i == 200 || i == 290)
            continue;
        ASSERT_EQ(copies[i]->next, copies[200]);
        const std::vector<std::shared_ptr<NSObject>> held{copies[2], copies[290]};
        ASSERT_EQ(copies[i]->objects, held);
    }
}

TEST(LargeArray, OfEverySizeItIsWrittenSoThatThePlainReaderReadsIt) {
    const PlainUnarchiver::Makers makers{
        {&Node::classObject(), [](PlainUnarchiver& coder) -> std::shared_ptr<NSObject> {
             auto node = std::make_shared<Node>();
             node->number = coder.decodeInt64("number");
             node->next = coder.decodeObject("next", Node::classes());
             return node;
         }}};
    for (const std::int64_t count : {1000, 1500, 40000}) {
        auto nodes = numberedNodes(count);
        for (std::size_t i = 1; i < nodes.size(); i += 3)
            nodes[i]->next = nodes[i - 1];
        const auto archive = archiveOf(nodes);
        PlainUnarchiver unarchiver(archive, makers);
        const auto copies = unarchiver.decodeObjects<Node>("nodes", Node::classes());
        ASSERT_EQ(copies.size(), nodes.size());
        for (std::size_t i = 0; i < copies.size(); ++i) {
            ASSERT_EQ(copies[i]->number, static_cast<std::int64_t>(i));
            ASSERT_EQ(copies[i]->next, i % 3 == 1 ? copies[i - 1] : nullptr);
        }
    }
}

TEST(LargeArray, AnObjectOfAnotherAllowedClassIsRefused) {
    std::vector<std::shared_ptr<NSObject>> mixed;
    for (int i = 0; i < 2000; ++i)
        mixed.push_back(std::make_shared<Node>());
    mixed[1700] = std::make_shared<Values>();
    NSKeyedArchiver archiver;
    archiver.encodeObjects(mixed, "nodes");
    const auto archive = archiver.finishEncoding();
    auto classes = Node::classes();
    classes.push_back(&Values::classObject());
    NSKeyedUnarchiver unarchiver(archive);
    EXPECT_EQ(unarchiver.decodeObjects("nodes", classes).size(), mixed.size());
    try {
        unarchiver.decodeObjects<Node>("nodes", classes);
        FAIL();
    } catch (const NSArchiveFailure& failure) {
        EXPECT_EQ(failure.what(),
                  refusal("nodes", "an object of class \"Values\" is not allowed there"));
    }
}

/// An object of integers and a boolean, which counts how often it is asked what it holds.
class Plain final : public NSObject {
  public:
    explicit Plain(std::int64_t n = 0) : number(n), isOdd(n % 2 != 0) {}
    std::int64_t number;
    bool isOdd;
    static inline int encoded = 0;
    static inline int decoded = 0;

    template <class Coder>
    static std::shared_ptr<NSObject> initWithCoder(Coder& coder) {
        ++decoded;
        auto plain = coder.template makeObject<Plain>();
        plain->number = coder.decodeInt64("number");
        plain->isOdd = coder.decodeBool("odd");
        return plain;
    }
    static const NSClass& classObject() {
        using Kind = NSPlainCoding::Kind;
        static constexpr NSPlainCoding::Field fields[] = {{"number", Kind::integer},
                                                          {"odd", Kind::boolean}};
        static constexpr NSPlainCoding coding{
            .fields = fields,
            .get =
                [](const NSObject& object, NSPlainCoding::Values& values) {
                    const auto& plain = static_cast<const Plain&>(object);
                    values[0] = plain.number;
                    values[1] = plain.isOdd;
                },
            .make = [](NSKeyedUnarchiver& coder,
                       const NSPlainCoding::Values& values) -> std::shared_ptr<NSObject> {
                auto plain = coder.makeObject<Plain>(values[0]);
                plain->isOdd = values[1] != 0;
                return plain;
            }};
        static const NSClass c{"Plain", &NSObject::classObject(), &initWithCoder<NSKeyedUnarchiver>,
                               false, &coding};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        ++encoded;
        coder.encodeInt64(number, "number");
        coder.encodeBool(isOdd, "odd");
    }
};
using Plains = std::vector<std::shared_ptr<Plain>>;
const NSClassSet& plainClasses() {
    static const NSClassSet classes{&NSArrayClass, &Plain::classObject()};
    return classes;
}
constexpr std::size_t manyPlains = 40000;

/// Of every width that integers are written in.
Plains plains(std::size_t count) {
    Plains objects;
    for (std::size_t i = 0; i < count; ++i) {
        const auto number = static_cast<std::int64_t>(i);
        objects.push_back(std::make_shared<Plain>(i % 3 == 0   ? -number
                                                  : i % 3 == 1 ? number << 20
                                                               : number));
    }
    return objects;
}
NSData archiveOf(const Plains& objects) {
    NSKeyedArchiver archiver;
    archiver.encodeObjects(objects, "plains");
    return archiver.finishEncoding();
}
Plains decodedPlains(NSDataView archive) {
    NSKeyedUnarchiver unarchiver(archive);
    return unarchiver.decodeObjects<Plain>("plains", plainClasses());
}
void expectSame(const Plains& a, const Plains& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        ASSERT_EQ(a[i]->number, b[i]->number) << i;
        ASSERT_EQ(a[i]->isOdd, b[i]->isOdd) << i;
    }
}

TEST(LargeArray, OfPlainObjectsIsWrittenAndReadWithoutAskingEachOfThem) {
    const auto objects = plains(manyPlains);
    Plain::encoded = Plain::decoded = 0;
    const auto archive = archiveOf(objects);
    EXPECT_EQ(Plain::encoded, 0);
    expectSame(decodedPlains(archive), objects);
    EXPECT_EQ(Plain::decoded, 1);
}

TEST(LargeArray, OfPlainObjectsIsWhatThePlainReaderReads) {
    const PlainUnarchiver::Makers makers{
        {&Plain::classObject(), &Plain::initWithCoder<PlainUnarchiver>}};
    // With references of two bytes and of three.
    for (const std::size_t count : {std::size_t{1024}, manyPlains}) {
        const auto objects = plains(count);
        const auto archive = archiveOf(objects);
        PlainUnarchiver plain(archive, makers);
        expectSame(plain.decodeObjects<Plain>("plains", plainClasses()), objects);
        expectSame(decodedPlains(archive), objects);
    }
}

TEST(LargeArray, APlainObjectThatStandsThereTwiceIsTheSameObject) {
    auto objects = plains(manyPlains);
    objects[30] = objects[29];
    objects.push_back(objects[7]);
    objects.push_back(objects[39000]);
    const auto copies = decodedPlains(archiveOf(objects));
    expectSame(copies, objects);
    EXPECT_EQ(copies[30], copies[29]);
    EXPECT_EQ(copies[manyPlains], copies[7]);
    EXPECT_EQ(copies[manyPlains + 1], copies[39000]);
    EXPECT_NE(copies[31], copies[29]);
}

TEST(LargeArray, OfPlainAndOtherObjectsHoldsEachOfThem) {
    std::vector<std::shared_ptr<NSObject>> mixed;
    for (const auto& plain : plains(manyPlains)) {
        if (mixed.size() % 97 == 5 || mixed.size() < 200)
            mixed.push_back(std::make_shared<Sized>(static_cast<std::int64_t>(mixed.size())));
        mixed.push_back(plain);
    }
    NSKeyedArchiver archiver;
    archiver.encodeObjects(mixed, "plains");
    const auto archive = archiver.finishEncoding();
    auto classes = plainClasses();
    classes.push_back(&Sized::classObject());
    NSKeyedUnarchiver unarchiver(archive);
    const auto copies = unarchiver.decodeObjects("plains", classes);
    ASSERT_EQ(copies.size(), mixed.size());
    for (std::size_t i = 0; i < mixed.size(); ++i) {
        ASSERT_EQ(&copies[i]->objectClass(), &mixed[i]->objectClass()) << i;
        if (const auto* const sized = dynamic_cast<const Sized*>(copies[i].get())) {
            ASSERT_EQ(sized->number, static_cast<const Sized&>(*mixed[i]).number);
            continue;
        }
        ASSERT_EQ(static_cast<const Plain&>(*copies[i]).number,
                  static_cast<const Plain&>(*mixed[i]).number);
    }
}

/// What an object has in an archive that is built by hand.
struct PlainParts {
    PropertyListWriter::Ref number;
    PropertyListWriter::Ref odd;
    PropertyListWriter::Ref itsClass;
};

/// An array of 2000 plain objects of the number 5, one of which `change` changes. What reading it
/// says; otherwise the sum.
std::string readingWithOneChanged(const std::function<void(ArchiveBuilder&, PlainParts&)>& change) {
    ArchiveBuilder builder;
    const auto c = builder.classNamed("Plain", {"Plain", "NSObject"});
    const auto arrayClass = builder.classNamed("NSArray", {"NSArray", "NSObject"});
    const PropertyListWriter::Ref keys[] = {
        builder.list.string("number"), builder.list.string("odd"), builder.list.string("$class")};
    std::vector<PropertyListWriter::Ref> elements;
    for (int i = 0; i < 2000; ++i) {
        PlainParts parts{builder.list.integer(5), builder.list.boolean(true), c};
        if (i == 1500)
            change(builder, parts);
        const PropertyListWriter::Ref pairs[] = {keys[0],   parts.number, keys[1],
                                                 parts.odd, keys[2],      parts.itsClass};
        elements.push_back(builder.uid(builder.add(builder.list.dictionary(pairs))));
    }
    const auto array = builder.add(
        builder.dictionary({{"NS.objects", builder.list.array(elements)}, {"$class", arrayClass}}));
    const auto archive = builder.finish(builder.dictionary({{"plains", builder.uid(array)}}));
    try {
        std::int64_t sum = 0;
        for (const auto& plain : decodedPlains(archive))
            sum += plain->number;
        return std::to_string(sum);
    } catch (const NSArchiveFailure& failure) {
        return failure.what();
    }
}

TEST(LargeArray, APlainObjectThatIsNotLikeTheOthersIsReadOrRefusedAsAnyObjectIs) {
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder&, PlainParts&) {}), "10000");
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder& builder, PlainParts& parts) {
                  parts.number = builder.list.integer(1005);
              }),
              "11000");
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder& builder, PlainParts& parts) {
                  parts.number = builder.list.string("5");
              }),
              refusal("number", "an integer was expected"));
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder& builder, PlainParts& parts) {
                  parts.number = builder.list.boolean(true);
              }),
              refusal("number", "an integer was expected"));
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder& builder, PlainParts& parts) {
                  parts.odd = builder.list.integer(1);
              }),
              refusal("odd", "a boolean was expected"));
    EXPECT_EQ(
        readingWithOneChanged([](ArchiveBuilder&, PlainParts& parts) { parts.number = 1000000; }),
        refusal("number", "a reference is out of range"));
    EXPECT_EQ(readingWithOneChanged([](ArchiveBuilder& builder, PlainParts& parts) {
                  parts.itsClass = builder.classNamed("Other", {"Other", "NSObject"});
              }),
              refusal("plains", "an object of class \"Other\" is not allowed there"));
}

/// Of addresses, in bytes.
std::size_t sizeOfThisProcess() {
    std::ifstream status("/proc/self/statm");
    std::size_t pages = 0;
    status >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(LargeMemory, OfWhatWasReleasedALittleIsKeptForTheNext) {
    constexpr std::size_t kept = std::size_t{8} << 20;
    const auto before = sizeOfThisProcess();
    std::vector<void*> pieces(40);
    for (auto& piece : pieces)
        piece = takeLargeMemory(largePage);
    for (auto* const piece : pieces) {
        ASSERT_NE(piece, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece) % largePage, 0u);
        releaseLargeMemory(piece, largePage);
    }
    EXPECT_LT(sizeOfThisProcess(), before + kept + largePage);
    const auto whileKept = sizeOfThisProcess();
    auto* const piece = takeLargeMemory(largePage);
    EXPECT_EQ(sizeOfThisProcess(), whileKept);
    releaseLargeMemory(piece, largePage);
}

TEST(LargeArray, OfMorePlainObjectsThanTheBudgetAllowsIsRefused) {
    const auto archive = archiveOf(plains(manyPlains));
    NSDecodingBudget most;
    most.bytes = archive.size() + 100000;
    NSKeyedUnarchiver unarchiver(archive, most);
    try {
        unarchiver.decodeObjects<Plain>("plains", plainClasses());
        FAIL();
    } catch (const NSArchiveFailure& failure) {
        EXPECT_EQ(failure.what(), refusal("plains", "the archive unfolds into too many bytes"));
    }
}

/// A large list of dictionaries that each hold the one before, in an array.
NSData listOf(std::size_t count, std::size_t mostNarrow) {
    PropertyListWriter list(nullptr, mostNarrow);
    std::vector<PropertyListWriter::Ref> refs{list.sharedString("first")};
    list.beginLarge(count, count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto number = list.integer(static_cast<std::int64_t>(i));
        const PropertyListWriter::Ref pairs[] = {refs.front(), number, number, refs.back()};
        refs.push_back(list.dictionary(pairs));
    }
    NSData bytes;
    list.write(list.array(refs), bytes);
    return bytes;
}

TEST(LargeList, HasReferencesOfThreeBytesUntilItsValuesAreTooMany) {
    constexpr std::size_t count = 200000;
    const auto narrow = listOf(count, std::size_t{1} << 24);
    const auto wide = listOf(count, 300000);
    constexpr std::size_t referenceSizeAt = 32 - 7;
    EXPECT_EQ(narrow[narrow.size() - referenceSizeAt], 3);
    EXPECT_EQ(wide[wide.size() - referenceSizeAt], 4);
    for (const auto& bytes : {narrow, wide}) {
        const PropertyListReader list(bytes);
        const auto root = list.value(list.root());
        ASSERT_EQ(root.kind, PropertyListReader::Kind::array);
        ASSERT_EQ(root.count, count + 1);
        EXPECT_TRUE(list.text(root, 0) == "first");
        for (std::uint32_t i = 0; i < count; ++i) {
            const auto dictionary = list.element(root, i + 1);
            ASSERT_EQ(dictionary.count, 2u);
            ASSERT_TRUE(list.text(dictionary, 0) == "first");
            ASSERT_EQ(list.valueOf(dictionary, 0).bits, i);
            ASSERT_EQ(list.key(dictionary, 1).bits, i);
            ASSERT_EQ(list.reference(dictionary, 3), list.reference(root, i));
        }
    }
}

}  // namespace
}  // namespace morvane::test
