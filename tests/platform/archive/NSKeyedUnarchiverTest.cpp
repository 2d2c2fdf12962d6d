// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "ArchiveTestModels.h"

namespace morvane::test {
namespace {

using Ref = ArchiveBuilder::Ref;
using Pairs = std::vector<std::pair<std::string_view, Ref>>;

/// An archive of one Node whose pairs `fill` adds to, at UID 1.
NSData nodeArchive(const std::function<void(ArchiveBuilder&, Pairs&)>& fill) {
    ArchiveBuilder archive;
    archive.objects.push_back(0);
    Pairs pairs;
    fill(archive, pairs);
    pairs.emplace_back("$class", archive.classNamed("Node", {"Node", "NSObject"}));
    archive.objects[1] = archive.dictionary(pairs);
    return archive.finish();
}

NSData valuesArchive(const std::function<void(ArchiveBuilder&, Pairs&)>& fill) {
    ArchiveBuilder archive;
    archive.objects.push_back(0);
    Pairs pairs;
    fill(archive, pairs);
    pairs.emplace_back("$class", archive.classNamed("Values", {"Values", "NSObject"}));
    archive.objects[1] = archive.dictionary(pairs);
    return archive.finish();
}
std::string valuesFailure(const std::function<void(ArchiveBuilder&, Pairs&)>& fill) {
    return failure(valuesArchive(fill), {&Values::classObject()});
}

NSData nodeBytes() {
    Node node;
    node.next = std::make_shared<Node>();
    return NSKeyedArchiver::archivedDataWithRootObject(node);
}

TEST(NSKeyedUnarchiver, AnArchiveBuiltByHandIsRead) {
    EXPECT_EQ(
        failure(nodeArchive([](auto& a, auto& p) { p.emplace_back("number", a.list.integer(3)); })),
        "");
}

TEST(NSKeyedUnarchiver, AClassOutsideTheSetIsRefusedBeforeAnythingIsMade) {
    const int before = Node::made();
    EXPECT_EQ(failure(nodeBytes(), {&Values::classObject()}),
              refusal("root", "an object of class \"Node\" is not allowed there"));
    EXPECT_EQ(Node::made(), before);
}

TEST(NSKeyedUnarchiver, AClassThatWasAllowedElsewhereIsRefused) {
    NSKeyedArchiver archiver;
    const Node first;
    const Node second;
    archiver.encodeObject(&first, "first");
    archiver.encodeObject(&second, "second");
    const auto bytes = archiver.finishEncoding();
    NSKeyedUnarchiver unarchiver(bytes);
    EXPECT_TRUE(unarchiver.decodeObject("first", {&Node::classObject()}));
    const int before = Node::made();
    EXPECT_THROW(unarchiver.decodeObject("second", {&Values::classObject()}), NSArchiveFailure);
    EXPECT_EQ(Node::made(), before);
}

TEST(NSKeyedUnarchiver, AnUnknownClassIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  const auto c = a.classNamed("Unknown", {"Unknown", "NSObject"});
                  p.emplace_back("next", a.uid(a.add(a.dictionary({{"$class", c}}))));
              })),
              refusal("next", "an object of class \"Unknown\" is not allowed there"));
}

TEST(NSKeyedUnarchiver, AnAncestryThatIsNotTheClassesOwnIsRefused) {
    for (const auto& ancestry :
         std::vector<std::vector<std::string_view>>{{"Node"},
                                                    {"NSObject"},
                                                    {"Unknown", "Node", "NSObject"},
                                                    {"Node", "Values", "NSObject"},
                                                    {"Node", "NSObject", "NSObject"},
                                                    {}}) {
        EXPECT_EQ(failure(nodeArchive([&](auto& a, auto& p) {
                      const auto c = a.classNamed("Node", ancestry);
                      p.emplace_back("next", a.uid(a.add(a.dictionary({{"$class", c}}))));
                  })),
                  refusal("next", "a class claims an ancestry that is not its own"));
    }
}

TEST(NSKeyedUnarchiver, ASubclassNameDoesNotStandForItsSuperclass) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  const auto c = a.classNamed("SubNode", {"SubNode", "Node", "NSObject"});
                  p.emplace_back("next", a.uid(a.add(a.dictionary({{"$class", c}}))));
              })),
              refusal("next", "an object of class \"SubNode\" is not allowed there"));
}

TEST(NSKeyedUnarchiver, AnObjectWithoutClassIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  p.emplace_back("next", a.uid(a.add(a.dictionary({}))));
              })),
              refusal("next", "an object has no class"));
}

TEST(NSKeyedUnarchiver, AClassThatIsNotAClassDictionaryIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  p.emplace_back("next", a.uid(a.add(a.dictionary({{"$class", a.uid(0)}}))));
              })),
              refusal("next", "a class is malformed"));
}

TEST(NSKeyedUnarchiver, AnObjectThatHoldsItselfIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) { p.emplace_back("next", a.uid(1)); })),
              refusal("next", "an object holds itself"));
}

TEST(NSKeyedUnarchiver, AnArrayThatHoldsItsHalfBuiltOwnerIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
                  const Ref elements[] = {a.uid(1)};
                  p.emplace_back("objects",
                                 a.uid(a.add(a.dictionary(
                                     {{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
              })),
              refusal("objects", "an object holds itself"));
}

TEST(NSKeyedUnarchiver, AUidOutOfRangeIsRefused) {
    for (const std::uint32_t uid : {3u, 1000u, 70000u}) {
        ArchiveBuilder archive;
        archive.objects.push_back(0);
        const auto next = archive.uid(uid);
        const auto c = archive.classNamed("Node", {"Node", "NSObject"});
        archive.objects[1] = archive.dictionary({{"next", next}, {"$class", c}});
        EXPECT_EQ(failure(archive.finish()),
                  refusal("next", "a reference leads out of the archive"));
    }
}

TEST(NSKeyedUnarchiver, AKeyThatStandsTwiceIsRefused) {
    EXPECT_EQ(failure(nodeArchive([](auto& a, auto& p) {
                  p.emplace_back("number", a.list.integer(3));
                  p.emplace_back("number", a.list.integer(4));
              })),
              refusal("number", "the key stands there twice"));
}

TEST(NSKeyedUnarchiver, AnObjectOfVeryManyKeysIsRefused) {
    std::vector<std::string> keys;
    for (int i = 0; i < 70; ++i)
        keys.push_back("key" + std::to_string(i));
    EXPECT_EQ(failure(nodeArchive([&](auto& a, auto& p) {
                  for (const auto& key : keys)
                      p.emplace_back(key, a.list.integer(1));
              })),
              refusal("root", "an object has too many keys"));
}

TEST(NSKeyedUnarchiver, AnIntegerThatDoesNotFitItsFieldIsRefused) {
    for (const std::int64_t value : {std::int64_t{2147483648}, std::int64_t{-2147483649}}) {
        EXPECT_EQ(valuesFailure(
                      [&](auto& a, auto& p) { p.emplace_back("narrow", a.list.integer(value)); }),
                  refusal("narrow", "an integer does not fit its field"));
    }
}

TEST(NSKeyedUnarchiver, AValueOfAnotherTypeIsRefusedByItsKey) {
    const auto wrong = [](std::string_view key) {
        return valuesFailure([&](auto& a, auto& p) {
            p.emplace_back(key, key == "flag" ? a.list.integer(1) : a.list.boolean(true));
        });
    };
    EXPECT_EQ(wrong("flag"), refusal("flag", "a boolean was expected"));
    EXPECT_EQ(wrong("narrow"), refusal("narrow", "an integer was expected"));
    EXPECT_EQ(wrong("wide"), refusal("wide", "an integer was expected"));
    EXPECT_EQ(wrong("real"), refusal("real", "a real number was expected"));
    for (const auto* key :
         {"text", "data", "uuid", "url", "path", "error", "urls", "strings", "integers"}) {
        EXPECT_EQ(wrong(key), refusal(key, "a reference to an object was expected"));
    }
}

TEST(NSKeyedUnarchiver, AnObjectOfAnotherTypeIsRefusedByItsKey) {
    const auto wrong = [](std::string_view key) {
        return valuesFailure(
            [&](auto& a, auto& p) { p.emplace_back(key, a.uid(a.add(a.list.integer(1)))); });
    };
    EXPECT_EQ(wrong("text"), refusal("text", "a text was expected"));
    EXPECT_EQ(wrong("data"), refusal("data", "data was expected"));
    for (const auto* key : {"uuid", "url", "path", "error", "urls", "strings", "integers"})
        EXPECT_EQ(wrong(key), refusal(key, "an object was expected"));
}

TEST(NSKeyedUnarchiver, AUuidOfTheWrongLengthFailsTheDecode) {
    for (const std::size_t size : {0u, 15u, 17u}) {
        EXPECT_EQ(valuesFailure([&](auto& a, auto& p) {
                      const NSData bytes(size, 1);
                      const auto c = a.classNamed("NSUUID", {"NSUUID", "NSObject"});
                      p.emplace_back(
                          "uuid",
                          a.uid(a.add(a.dictionary(
                              {{"NS.uuidbytes", a.list.data(NSDataView(bytes))}, {"$class", c}}))));
                  }),
                  refusal("uuid", "a UUID is malformed"));
    }
}

TEST(NSKeyedUnarchiver, AUuidOfAnotherClassFailsTheDecode) {
    EXPECT_EQ(valuesFailure([&](auto& a, auto& p) {
                  const NSData bytes(16, 1);
                  const auto c = a.classNamed("NSURL", {"NSURL", "NSObject"});
                  p.emplace_back(
                      "uuid",
                      a.uid(a.add(a.dictionary(
                          {{"NS.uuidbytes", a.list.data(NSDataView(bytes))}, {"$class", c}}))));
              }),
              refusal("uuid", "an object of class \"NSURL\" is not allowed there"));
}

TEST(NSKeyedUnarchiver, AUrlThatIsRelativeOrMalformedIsRefused) {
    const auto url = [](std::string_view text, bool relative) {
        return valuesFailure([&](auto& a, auto& p) {
            const auto c = a.classNamed("NSURL", {"NSURL", "NSObject"});
            const auto base = relative ? a.uid(a.add(a.list.string("file:///"))) : a.uid(0);
            const auto path = a.uid(a.add(a.list.string(text)));
            p.emplace_back("url", a.uid(a.add(a.dictionary(
                                      {{"NS.base", base}, {"NS.relative", path}, {"$class", c}}))));
        });
    };
    EXPECT_EQ(url("file:///a", false), "");
    EXPECT_EQ(url("file:///a", true), refusal("url", "a URL is relative to another"));
    EXPECT_EQ(url("no scheme", false), refusal("url", "a URL is malformed"));
    EXPECT_EQ(url("file:///%00", false), refusal("url", "a URL is malformed"));
}

TEST(NSKeyedUnarchiver, MutableArraysAreReadAsArrays) {
    EXPECT_EQ(valuesFailure([&](auto& a, auto& p) {
                  const auto c =
                      a.classNamed("NSMutableArray", {"NSMutableArray", "NSArray", "NSObject"});
                  p.emplace_back("urls", a.uid(a.add(a.dictionary(
                                             {{"NS.objects", a.list.array({})}, {"$class", c}}))));
              }),
              "");
}

/// A text or data as an object of its own, with what it has in it.
Ref objectOf(ArchiveBuilder& a, std::string_view name, std::string_view base,
             std::string_view member, Ref contents) {
    const auto c = a.classNamed(name, {name, base, "NSObject"});
    return a.uid(a.add(a.dictionary({{member, contents}, {"$class", c}})));
}
Ref mutableString(ArchiveBuilder& a, std::string_view text) {
    return objectOf(a, "NSMutableString", "NSString", "NS.string", a.list.string(text));
}
Ref mutableData(ArchiveBuilder& a, NSDataView bytes) {
    return objectOf(a, "NSMutableData", "NSData", "NS.data", a.list.data(bytes));
}

TEST(NSKeyedUnarchiver, MutableTextsAndDataThatAreObjectsAreRead) {
    const NSData bytes{1, 2, 3};
    NSErrorRef error;
    const auto values =
        std::static_pointer_cast<Values>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
            {&Values::classObject()}, valuesArchive([&](auto& a, auto& p) {
                p.emplace_back("text", mutableString(a, "äöü"));
                p.emplace_back("data", mutableData(a, bytes));
                const auto array = a.classNamed("NSArray", {"NSArray", "NSObject"});
                const Ref strings[] = {mutableString(a, "one"), a.uid(a.add(a.list.string("two")))};
                p.emplace_back("strings",
                               a.uid(a.add(a.dictionary(
                                   {{"NS.objects", a.list.array(strings)}, {"$class", array}}))));
            }),
            &error));
    ASSERT_TRUE(values) << error->localizedDescription();
    EXPECT_EQ(values->text, "äöü");
    EXPECT_EQ(values->data, bytes);
    EXPECT_EQ(values->strings, (std::vector<std::string>{"one", "two"}));
}

TEST(NSKeyedUnarchiver, ANestedArchiveMayBeMutableData) {
    NSErrorRef error;
    const auto node = std::static_pointer_cast<Node>(NSKeyedUnarchiver::unarchivedObjectOfClasses(
        {&Node::classObject()}, nodeArchive([&](auto& a, auto& p) {
            const auto array =
                a.classNamed("NSMutableArray", {"NSMutableArray", "NSArray", "NSObject"});
            const Ref archives[] = {mutableData(a, nodeBytes())};
            p.emplace_back("archives",
                           a.uid(a.add(a.dictionary(
                               {{"NS.objects", a.list.array(archives)}, {"$class", array}}))));
        }),
        &error));
    ASSERT_TRUE(node) << error->localizedDescription();
    EXPECT_EQ(node->archives.size(), 1u);
}

TEST(NSKeyedUnarchiver, AMutableTextOrDataOfOtherContentsIsRefused) {
    const auto text = [](const std::function<Ref(ArchiveBuilder&)>& make) {
        return valuesFailure([&](auto& a, auto& p) { p.emplace_back("text", make(a)); });
    };
    EXPECT_EQ(text([](auto& a) {
                  return objectOf(a, "NSMutableString", "NSString", "NS.other", a.list.string("x"));
              }),
              refusal("text", "a text was expected"));
    EXPECT_EQ(text([](auto& a) {
                  return objectOf(a, "NSMutableString", "NSString", "NS.string",
                                  a.dictionary({{"NS.string", a.list.string("x")}}));
              }),
              refusal("text", "a text was expected"));
    EXPECT_EQ(text([](auto& a) { return mutableData(a, {}); }),
              refusal("text", "an object of class \"NSMutableData\" is not allowed there"));
    EXPECT_EQ(text([](auto& a) {
                  return objectOf(a, "NSMutableString", "NSData", "NS.string", a.list.string("x"));
              }),
              refusal("text", "a class claims an ancestry that is not its own"));
    EXPECT_EQ(valuesFailure([](auto& a, auto& p) {
                  p.emplace_back("data", objectOf(a, "NSMutableData", "NSData", "NS.data",
                                                  a.list.string("x")));
              }),
              refusal("data", "data was expected"));
}

TEST(NSKeyedUnarchiver, OnlyAWholeArrayIsAnArray) {
    ArchiveBuilder a;
    const auto array = a.classNamed("NSArray", {"NSArray", "NSObject"});
    const auto object = [&](const Pairs& pairs) { return a.uid(a.add(a.dictionary(pairs))); };
    const auto bytes = a.finish(a.dictionary(
        {{"array", object({{"NS.objects", a.list.array({})}, {"$class", array}})},
         {"nil", a.uid(0)},
         {"integer", a.list.integer(3)},
         {"text", a.uid(a.add(a.list.string("text")))},
         {"of another class", object({{"NS.objects", a.list.array({})},
                                      {"$class", a.classNamed("Other", {"Other", "NSObject"})}})},
         {"without class", object({{"NS.objects", a.list.array({})}})},
         {"without elements", object({{"$class", array}})},
         {"outside", a.uid(999)}}));
    NSKeyedUnarchiver coder(bytes);
    EXPECT_TRUE(coder.isArray("array"));
    for (const auto* key : {"nil", "integer", "text", "of another class", "without class",
                            "without elements", "outside", "missing"})
        EXPECT_FALSE(coder.isArray(key)) << key;
    for (const auto* key : {"nil", "missing"})
        EXPECT_TRUE(coder.isNil(key)) << key;
    for (const auto* key : {"array", "integer", "text", "outside"})
        EXPECT_FALSE(coder.isNil(key)) << key;
}

TEST(NSKeyedUnarchiver, ANestedArchiveThatStandsTwiceIsRefused) {
    const auto twice = [](bool sameObject) {
        return failure(nodeArchive([&](auto& a, auto& p) {
            const auto array = a.classNamed("NSArray", {"NSArray", "NSObject"});
            // The value alone may be shared: archives may be equal.
            const auto data =
                a.list.data(NSDataView(NSKeyedArchiver::archivedDataWithRootObject(Node())));
            const auto first = a.uid(a.add(data));
            const Ref archives[] = {first, sameObject ? first : a.uid(a.add(data))};
            p.emplace_back("archives",
                           a.uid(a.add(a.dictionary(
                               {{"NS.objects", a.list.array(archives)}, {"$class", array}}))));
        }));
    };
    EXPECT_EQ(twice(false), "");
    EXPECT_EQ(
        twice(true),
        refusal("archives", "a nested archive stands there that stands in another place too"));
}

TEST(NSKeyedUnarchiver, NilAnArrayAndAValueAreRefusedAsElements) {
    const auto element = [](const std::function<Ref(ArchiveBuilder&)>& make) {
        return failure(nodeArchive([&](auto& a, auto& p) {
            const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
            const Ref elements[] = {make(a)};
            p.emplace_back("objects",
                           a.uid(a.add(a.dictionary(
                               {{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
        }));
    };
    EXPECT_EQ(element([](auto& a) { return a.uid(0); }),
              refusal("objects", "an element of an array is nil"));
    EXPECT_EQ(
        element([](auto& a) {
            const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
            return a.uid(a.add(a.dictionary({{"NS.objects", a.list.array({})}, {"$class", c}})));
        }),
        refusal("objects", "an object of class \"NSArray\" is not allowed there"));
    EXPECT_EQ(element([](auto& a) { return a.uid(a.add(a.list.string("text"))); }),
              refusal("objects", "an object was expected"));
    EXPECT_EQ(element([](auto& a) { return a.list.integer(1); }),
              refusal("objects", "a reference to an object was expected"));
}

NSData nestedArchive(const NSData& blob) {
    return nodeArchive([&](auto& a, auto& p) {
        const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
        const Ref elements[] = {a.uid(a.add(a.list.data(NSDataView(blob))))};
        p.emplace_back(
            "archives",
            a.uid(a.add(a.dictionary({{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
    });
}

TEST(NSKeyedUnarchiver, ANestedArchiveOfAnotherClassFailsTheDecode) {
    EXPECT_EQ(failure(nestedArchive(nodeBytes())), "");
    EXPECT_EQ(failure(nestedArchive(NSKeyedArchiver::archivedDataWithRootObject(Values()))),
              refusal("root", "an object of class \"Values\" is not allowed there"));
}

TEST(NSKeyedUnarchiver, ANestedArchiveThatHoldsNilFailsTheDecode) {
    NSKeyedArchiver nil;
    nil.encodeObject(nullptr, "root");
    EXPECT_EQ(failure(nestedArchive(nil.finishEncoding())),
              refusal("archives", "a nested archive holds no object"));
}

TEST(NSKeyedUnarchiver, ADamagedNestedArchiveFailsTheDecodeAndNamesTheKey) {
    EXPECT_EQ(failure(nestedArchive({1, 2, 3})),
              refusal("archives", "it is too short to be a property list"));
}

TEST(NSKeyedUnarchiver, AnExceptionOfAnInitialiserBecomesAnError) {
    EXPECT_EQ(failure(nodeArchive(
                  [](auto& a, auto& p) { p.emplace_back("number", a.list.integer(-99)); })),
              refusal("root",
                      "an object of class \"Node\" cannot be rebuilt (Index 4 is beyond the bounds "
                      "of an array of 3 elements.)"));
}

TEST(NSKeyedUnarchiver, NilAtTheRootIsNilWithoutAnError) {
    NSKeyedArchiver archiver;
    archiver.encodeObject(nullptr, "root");
    const auto bytes = archiver.finishEncoding();
    NSErrorRef error = NSError::errorWithDomain("old", 1);
    EXPECT_EQ(NSKeyedUnarchiver::unarchivedObjectOfClasses({&Node::classObject()}, bytes, &error),
              nullptr);
    EXPECT_EQ(error, nullptr);
}

TEST(NSKeyedUnarchiver, SixtyFourObjectsDeepAreReadAndOneMoreIsRefused) {
    const auto chain = [](int depth) {
        auto node = std::make_shared<Node>();
        for (int i = 1; i < depth; ++i) {
            auto outer = std::make_shared<Node>();
            outer->next = node;
            node = outer;
        }
        return NSKeyedArchiver::archivedDataWithRootObject(*node);
    };
    EXPECT_EQ(failure(chain(64)), "");
    EXPECT_EQ(failure(chain(65)), refusal("next", "objects are nested too deeply"));
}

TEST(NSKeyedUnarchiver, TheDepthSpansNestedArchives) {
    const auto chain = [](int depth) {
        auto node = std::make_shared<Node>();
        for (int i = 1; i < depth; ++i) {
            auto outer = std::make_shared<Node>();
            outer->archives.push_back(node);
            node = outer;
        }
        return NSKeyedArchiver::archivedDataWithRootObject(*node);
    };
    EXPECT_EQ(failure(chain(64)), "");
    EXPECT_EQ(failure(chain(65)), refusal("root", "objects are nested too deeply"));
}

/// So many objects that share one value.
std::vector<Ref> objectsOf(ArchiveBuilder& a, Ref value, std::size_t count) {
    std::vector<Ref> objects(count);
    for (auto& object : objects)
        object = a.uid(a.add(value));
    return objects;
}

TEST(NSKeyedUnarchiver, ASmallArchiveCannotUnfoldBeyondItsBudget) {
    // Each level's array has the level below it many times: 30 to the power of 5 objects.
    NSData blob = NSKeyedArchiver::archivedDataWithRootObject(Node());
    for (int level = 0; level < 5; ++level) {
        blob = nodeArchive([&](auto& a, auto& p) {
            const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
            const auto elements = objectsOf(a, a.list.data(NSDataView(blob)), 30);
            p.emplace_back("archives",
                           a.uid(a.add(a.dictionary(
                               {{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
        });
    }
    const int before = Node::made();
    const auto what = failure(blob);
    EXPECT_NE(what.find("the archive unfolds into too many"), std::string::npos) << what;
    EXPECT_LT(Node::made() - before, 4000);
}

TEST(NSKeyedUnarchiver, AnObjectThatIsNamedVeryOftenSpendsTheBudgetOfObjects) {
    const auto member = [](ArchiveBuilder& a, Pairs& p, std::string_view key,
                           const std::vector<Ref>& elements) {
        const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
        p.emplace_back(
            key,
            a.uid(a.add(a.dictionary({{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
    };
    const auto inner = nodeArchive([&](auto& a, auto& p) {
        const auto node = a.dictionary({{"$class", a.classNamed("Node", {"Node", "NSObject"})}});
        member(a, p, "objects", std::vector(300, a.uid(a.add(node))));
    });
    const auto bytes = nodeArchive([&](auto& a, auto& p) {
        member(a, p, "archives", objectsOf(a, a.list.data(NSDataView(inner)), 50));
    });
    const auto what = failure(bytes);
    EXPECT_NE(what.find("the archive unfolds into too many objects"), std::string::npos) << what;
}

TEST(NSKeyedUnarchiver, ALargeArchiveUnfoldsIntoNoMoreThanTheMost) {
    const auto largest = NSDecodingBudget::forArchiveOfSize(std::size_t{1} << 40, {});
    EXPECT_EQ(largest.bytes, std::uint64_t{1} << 30);
    EXPECT_EQ(largest.objects, std::uint64_t{1} << 26);
    EXPECT_EQ(NSDecodingBudget::forArchiveOfSize(1, {}).objects, 1026u);
}

TEST(NSKeyedUnarchiver, IsRefusedWhatExceedsTheBudgetThatItsReaderSets) {
    const auto refusalWithin = [](const NSDecodingBudget& most) -> std::string {
        const auto bytes = nodeBytes();
        try {
            NSKeyedUnarchiver unarchiver(bytes, most);
            unarchiver.decodeObject("root", Node::classes());
        } catch (const NSArchiveFailure& e) {
            return e.what();
        }
        return "";
    };
    EXPECT_EQ(refusalWithin({}), "");
    EXPECT_EQ(refusalWithin({.bytes = 16}),
              refusal("root", "the archive unfolds into too many bytes"));
    EXPECT_EQ(refusalWithin({.objects = 1}),
              refusal("next", "the archive unfolds into too many objects"));
}

TEST(NSKeyedUnarchiver, AnObjectThatIsListedOverAndOverGetsNoRoom) {
    ArchiveBuilder archive;
    archive.objects.push_back(0);
    archive.objects[1] =
        archive.dictionary({{"$class", archive.classNamed("Node", {"Node", "NSObject"})}});
    archive.objects.resize(100000, archive.objects[1]);
    EXPECT_EQ(failure(archive.finish()), refusal("$objects", "there are more objects than values"));
}

TEST(NSKeyedUnarchiver, ATextThatIsReadVeryOftenSpendsTheBudgetOfBytes) {
    const auto bytes = valuesArchive([](auto& a, auto& p) {
        const auto c = a.classNamed("NSArray", {"NSArray", "NSObject"});
        const std::vector<Ref> elements(1000, a.uid(a.add(a.list.string(std::string(1000, 'x')))));
        p.emplace_back(
            "strings",
            a.uid(a.add(a.dictionary({{"NS.objects", a.list.array(elements)}, {"$class", c}}))));
    });
    EXPECT_EQ(failure(bytes, {&Values::classObject()}),
              refusal("strings", "the archive unfolds into too many bytes"));
}

// The trailer: [6] offset size, [7] reference size, [8] count, [16] root, [24] table.
NSData withTrailer(std::size_t field, std::uint64_t value, std::size_t size) {
    auto bytes = nodeBytes();
    for (std::size_t i = 0; i < size; ++i) {
        bytes[bytes.size() - 32 + field + i] =
            static_cast<std::uint8_t>(value >> (8 * (size - 1 - i)));
    }
    return bytes;
}

TEST(NSKeyedUnarchiver, ATrailerThatDoesNotFitIsRefused) {
    for (const auto count : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1} << 61,
                             std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        EXPECT_EQ(failure(withTrailer(8, count, 8)),
                  refusal("root", "its offset table does not fit"));
    }
    for (const auto table :
         {std::uint64_t{0}, std::uint64_t{8}, std::uint64_t{1} << 40, ~std::uint64_t{0}}) {
        EXPECT_EQ(failure(withTrailer(24, table, 8)),
                  refusal("root", "its offset table does not fit"));
    }
    EXPECT_EQ(failure(withTrailer(16, 100000, 8)), refusal("root", "its root is out of range"));
    for (const std::size_t field : {6u, 7u}) {
        for (const std::uint64_t size : {0u, 9u, 255u}) {
            EXPECT_EQ(failure(withTrailer(field, size, 1)),
                      refusal("root", "its trailer gives an impossible integer size"));
        }
    }
}

TEST(NSKeyedUnarchiver, ACountThatIsTooLargeForItsListIsRefusedAlsoWhereTheBytesOverflow) {
    // Data, ASCII, UTF-16, an array, a set, a dictionary; references have eight bytes.
    for (const char marker : {'\x4F', '\x5F', '\x6F', '\xAF', '\xCF', '\xDF'}) {
        for (const auto count :
             {std::uint64_t{9}, std::uint64_t{1} << 32, std::uint64_t{1} << 60,
              std::uint64_t{1} << 61, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
            NSData bytes{'b', 'p', 'l', 'i', 's', 't', '0', '0', static_cast<std::uint8_t>(marker),
                         0x13};
            const auto append = [&](std::uint64_t value) {
                for (int shift = 56; shift >= 0; shift -= 8)
                    bytes.push_back(static_cast<std::uint8_t>(value >> shift));
            };
            append(count);
            const auto table = bytes.size() + 8;
            bytes.resize(table);
            bytes.push_back(8);  // the only value's offset
            bytes.insert(bytes.end(), {0, 0, 0, 0, 0, 0, 1, 8});
            append(1);
            append(0);
            append(table);
            EXPECT_EQ(failure(bytes), refusal("root", "a value is cut off"))
                << int{marker} << count;
        }
    }
}

TEST(NSKeyedUnarchiver, AnArchiveCutAtAnyByteIsRefused) {
    const auto bytes = nodeBytes();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_NE(failure(NSDataView(bytes).first(size)), "") << size;
    }
}

TEST(NSKeyedUnarchiver, AnArchiveWithAnyByteChangedIsReadOrRefusedButNeverHarms) {
    const auto bytes = nodeBytes();
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        for (const int flip : {0x01, 0x0F, 0x80, 0xFF}) {
            auto changed = bytes;
            changed[at] = static_cast<std::uint8_t>(changed[at] ^ flip);
            EXPECT_NE(failure(changed), "wrong kind of error");
        }
    }
}

TEST(NSKeyedUnarchiver, AnOffsetOutsideTheListIsRefused) {
    auto bytes = nodeBytes();
    const auto table = bytes.size() - 32 - 2 * ((bytes[bytes.size() - 32 + 15]));
    for (std::size_t i = table; i < bytes.size() - 32; ++i)
        bytes[i] = 0xFF;
    EXPECT_EQ(failure(bytes), refusal("root", "an offset is out of range"));
}

TEST(NSKeyedUnarchiver, ALoneSurrogateIsRefused) {
    Values values;
    values.text = "\xF0\x9F\x93\x81";  // D83D DCC1
    auto bytes = NSKeyedArchiver::archivedDataWithRootObject(values);
    const std::uint8_t pair[] = {0xD8, 0x3D, 0xDC, 0xC1};
    const auto at = std::search(bytes.begin(), bytes.end(), std::begin(pair), std::end(pair));
    ASSERT_NE(at, bytes.end());
    for (const std::size_t half : {0u, 2u}) {
        auto changed = bytes;
        const auto offset = static_cast<std::size_t>(at - bytes.begin());
        changed[offset + half] = 0x00;
        EXPECT_EQ(failure(changed, {&Values::classObject()}),
                  refusal("text", "a text is not Unicode"));
    }
}

TEST(NSKeyedUnarchiver, AnAsciiTextWithOtherBytesIsRefused) {
    Values values;
    values.text = "marker";
    auto bytes = NSKeyedArchiver::archivedDataWithRootObject(values);
    const std::string_view marker = "marker";
    const auto at = std::search(bytes.begin(), bytes.end(), marker.begin(), marker.end());
    ASSERT_NE(at, bytes.end());
    *at = 0xC3;
    EXPECT_EQ(failure(bytes, {&Values::classObject()}), refusal("text", "a text is not ASCII"));
}

TEST(NSKeyedUnarchiver, APropertyListThatIsNoArchiveIsRefused) {
    PropertyListWriter list;
    NSData bytes;
    list.write(list.string("text"), bytes);
    EXPECT_EQ(failure(bytes), refusal("root", "it is not a keyed archive"));
    EXPECT_EQ(failure(NSData()), refusal("root", "it is too short to be a property list"));
    EXPECT_EQ(failure(NSData(100, 'x')), refusal("root", "it is not a binary property list"));
}

}  // namespace
}  // namespace morvane::test
