// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/archive/PlainUnarchiver.h"

/// Reads every archive twice, as NSKeyedUnarchiver does and as the plain reader does: both refuse
/// it, or both make the same of it. What is archived here and not damaged is read as it was.
///
/// An input that starts as a property list is an archive as it stands. Any other is a recipe: the
/// objects to archive, small arrays and large ones, shared ones and nested ones, and how to damage
/// the archive.
namespace {

using namespace morvane;
using test::PlainRefusal;
using test::PlainUnarchiver;

void require(bool condition) {
    if (!condition)
        std::abort();
}

class Thing;
using Things = std::vector<std::shared_ptr<Thing>>;
using Objects = std::vector<std::shared_ptr<NSObject>>;

/// A value of every type, others of its kind, and what else can be asked.
class Thing : public NSObject {
  public:
    bool flag = false;
    std::int32_t narrow = 0;
    std::int64_t wide = 0;
    std::uint64_t real = 0;
    std::optional<std::string> text;
    std::optional<NSData> data;
    std::optional<NSUUID> uuid;
    std::optional<NSURL> url;
    NSIndexPath path;
    NSErrorRef error;
    std::vector<NSURL> urls;
    std::vector<std::string> strings;
    std::vector<std::int64_t> integers;
    std::shared_ptr<NSObject> next;
    Things things;
    Objects archives;
    std::vector<bool> answers;

    /// Each object writes and asks for a part of the keys only, or there would be none of few keys.
    template <class Coder>
    void read(Coder& coder) {
        // What these meet and do not tell must not be in the way of what is read then.
        answers = {coder.containsValueForKey("things"), coder.isNil("things"),
                   coder.isArray("things"), coder.isArray("next")};
        flag = coder.decodeBool("flag");
        wide = coder.decodeInt64("wide");
        if (flag) {
            narrow = coder.decodeInt32("narrow");
            real = std::bit_cast<std::uint64_t>(coder.decodeDouble("real"));
            text = coder.decodeString("text");
            data = coder.decodeData("data");
            uuid = coder.decodeUUID("uuid");
            url = coder.decodeURL("url");
            path = coder.decodeIndexPath("path");
            error = coder.decodeError("error");
            urls = coder.decodeURLs("urls");
            strings = coder.decodeStrings("strings");
            integers = coder.decodeIntegers("integers");
        }
        next = coder.decodeObject("next", classes());
        things = coder.template decodeObjects<Thing>("things", classes());
        archives = coder.decodeArchives("archives", classObject(), front());
    }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeBool(flag, "flag");
        coder.encodeInt64(wide, "wide");
        if (flag) {
            coder.encodeInt32(narrow, "narrow");
            coder.encodeDouble(std::bit_cast<double>(real), "real");
            coder.encodeString(text, "text");
            if (data)
                coder.encodeData(*data, "data");
            coder.encodeUUID(uuid, "uuid");
            coder.encodeURL(url, "url");
            if (!path.indexes.empty())
                coder.encodeIndexPath(path, "path");
            coder.encodeError(error, "error");
            coder.encodeURLs(urls, "urls");
            coder.encodeStrings(strings, "strings");
            coder.encodeIntegers(integers, "integers");
        }
        coder.encodeObject(next.get(), "next");
        if (!things.empty())
            coder.encodeObjects(things, "things");
        if (!archives.empty() && flag)
            coder.encodeArchives(archives, "archives");
        else if (!archives.empty())
            coder.encodeArchives(archives, "archives", front());
    }
    static std::vector<bool> nothingThere() { return {false, true, false, false}; }
    static const NSClassSet& classes();
    /// Some of what archives of things have, and a key that they do not have.
    static const NSArchiveFront& front();
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }
};

template <class Made, class Coder>
std::shared_ptr<NSObject> make(Coder& coder) {
    auto object = coder.template makeObject<Made>();
    object->read(coder);
    return object;
}

/// One that stands in one place of an archive only.
class Owned final : public Thing {
  public:
    static const NSClass& classObject() {
        static const NSClass c{"Owned", &Thing::classObject(), &make<Owned, NSKeyedUnarchiver>,
                               true};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

/// One of an integer and a boolean, of which large arrays are read in another way.
class Number final : public Thing {
  public:
    template <class Coder>
    void read(Coder& coder) {
        flag = coder.decodeBool("flag");
        wide = coder.decodeInt64("wide");
    }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeBool(flag, "flag");
        coder.encodeInt64(wide, "wide");
    }
    static const NSClass& classObject() {
        using Kind = NSPlainCoding::Kind;
        static constexpr NSPlainCoding::Field fields[] = {{"flag", Kind::boolean},
                                                          {"wide", Kind::integer}};
        static constexpr NSPlainCoding coding{
            .fields = fields,
            .get =
                [](const NSObject& object, NSPlainCoding::Values& values) {
                    const auto& number = static_cast<const Number&>(object);
                    values[0] = number.flag;
                    values[1] = number.wide;
                },
            .make = [](NSKeyedUnarchiver& coder,
                       const NSPlainCoding::Values& values) -> std::shared_ptr<NSObject> {
                auto number = coder.makeObject<Number>();
                number->flag = values[0] != 0;
                number->wide = values[1];
                return number;
            }};
        static const NSClass c{"Number", &Thing::classObject(), &make<Number, NSKeyedUnarchiver>,
                               false, &coding};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

const NSClass& Thing::classObject() {
    static const NSClass c{"Thing", &NSObject::classObject(), &make<Thing, NSKeyedUnarchiver>};
    return c;
}

const NSClassSet& Thing::classes() {
    static const NSClassSet set{&Thing::classObject(), &Owned::classObject(),
                                &Number::classObject(), &NSArrayClass};
    return set;
}

const NSArchiveFront& Thing::front() {
    // Of one that has a number only.
    static constexpr NSBriefCoding brief{
        .get =
            [](const NSObject& object, NSBriefCoding::Values& values) {
                const auto& thing = static_cast<const Thing&>(object);
                values.integers[0] = thing.wide;
                return !thing.flag && !thing.next && thing.things.empty() &&
                       thing.archives.empty() && thing.answers == nothingThere();
            },
        .make = [](NSKeyedUnarchiver& coder,
                   const NSBriefCoding::Values& values) -> std::shared_ptr<NSObject> {
            auto thing = coder.makeObject<Thing>();
            thing->wide = values.integers[0];
            thing->answers = nothingThere();
            return thing;
        }};
    static const auto& front =
        *new NSArchiveFront({"root", "flag", "wide", "next", "narrow", "no key of it"},
                            {&Thing::classObject(), &NSArrayClass}, &brief);
    return front;
}

const PlainUnarchiver::Makers makers{
    {&Thing::classObject(), &make<Thing, PlainUnarchiver>},
    {&Owned::classObject(), &make<Owned, PlainUnarchiver>},
    {&Number::classObject(), &make<Number, PlainUnarchiver>},
};

/// What an archive of ours has on top.
struct Contents {
    Objects objects;
    std::shared_ptr<NSObject> root;

    template <class Coder>
    static Contents read(Coder& coder) {
        Contents contents;
        contents.objects = coder.decodeObjects("objects", Thing::classes());
        contents.root = coder.decodeObject("root", Thing::classes());
        return contents;
    }
    NSData archive() const {
        NSKeyedArchiver coder;
        if (!objects.empty())
            coder.encodeObjects(std::span(objects), "objects");
        if (root)
            coder.encodeObject(root.get(), "root");
        return coder.finishEncoding();
    }
};

/// Compares two graphs: the same values, and the same object wherever the other has one.
class Comparison {
  public:
    bool same(const Contents& a, const Contents& b) {
        return sameAll(a.objects, b.objects) && same(a.root.get(), b.root.get());
    }

  private:
    template <class List>
    bool sameAll(const List& a, const List& b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                          [&](const auto& x, const auto& y) { return same(x.get(), y.get()); });
    }
    bool same(const NSObject* a, const NSObject* b) {
        if (!a || !b)
            return a == b;
        const auto [known, isNew] = other_.emplace(a, b);
        if (!isNew)
            return known->second == b;
        if (&a->objectClass() != &b->objectClass())
            return false;
        return sameThing(static_cast<const Thing&>(*a), static_cast<const Thing&>(*b));
    }
    bool sameThing(const Thing& a, const Thing& b) {
        return a.flag == b.flag && a.narrow == b.narrow && a.wide == b.wide && a.real == b.real &&
               a.text == b.text && a.data == b.data && a.uuid == b.uuid && a.url == b.url &&
               a.path == b.path && !a.error == !b.error &&
               (!a.error || a.error->isEqual(b.error.get())) && a.urls == b.urls &&
               a.strings == b.strings && a.integers == b.integers &&
               same(a.next.get(), b.next.get()) && sameAll(a.things, b.things) &&
               sameAll(a.archives, b.archives);
    }

    std::map<const NSObject*, const NSObject*> other_;
};

/// What is asked of a reader besides.
bool sameAnswers(const Contents& a, const Contents& b) {
    const auto answers = [](const Contents& contents) {
        return contents.root ? static_cast<const Thing&>(*contents.root).answers
                             : std::vector<bool>();
    };
    return answers(a) == answers(b);
}

std::optional<Contents> plainlyRead(NSDataView archive) {
    try {
        PlainUnarchiver coder(archive, makers);
        return Contents::read(coder);
    } catch (const PlainRefusal&) {
        return std::nullopt;
    }
}

struct Outcome {
    std::optional<Contents> contents;
    /// The budget, which the plain reader has not, was at an end.
    bool isSpent = false;
};

Outcome read(NSDataView archive) {
    try {
        NSKeyedUnarchiver coder(archive);
        return {Contents::read(coder)};
    } catch (const NSArchiveFailure& failure) {
        return {std::nullopt, std::string_view(failure.what()).find("unfolds into too many") !=
                                  std::string::npos};
    }
}

/// What both make of it; empty if they refuse it.
std::optional<Contents> readByBoth(NSDataView archive) {
    auto outcome = read(archive);
    if (outcome.isSpent)
        return std::nullopt;
    const auto plain = plainlyRead(archive);
    require(plain.has_value() == outcome.contents.has_value());
    require(!plain || (Comparison().same(*plain, *outcome.contents) &&
                       sameAnswers(*plain, *outcome.contents)));
    return std::move(outcome.contents);
}

/// The bytes of the input, one after the other, then zeros.
class Recipe {
  public:
    explicit Recipe(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::uint8_t byte() {
        if (bytes_.empty())
            return 0;
        const auto first = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return first;
    }
    std::size_t below(std::size_t bound) { return byte() % bound; }
    std::int64_t number() {
        std::int64_t number = static_cast<std::int8_t>(byte());
        for (auto more = below(3); more > 0; --more)
            number = number * 0x10001 + byte();
        return number;
    }
    std::string text() {
        static const std::string_view texts[] = {
            "", "a text", "\xC3\xA4", "fifteen letters", "/a/path%20", "file:///x"};
        return std::string(texts[below(std::size(texts))]);
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

class Builder {
  public:
    explicit Builder(Recipe& recipe) : recipe_(recipe) {}

    Contents contents() {
        Contents contents;
        if (recipe_.below(4) != 0)
            contents.root = thing(3);
        // From 1024 on arrays are large.
        const auto kind = recipe_.below(32);
        const auto count = kind == 31 ? 1020 + recipe_.below(8) : kind < 8 ? recipe_.below(4) : 0;
        const bool areNumbers = kind == 31 && recipe_.below(2) != 0;
        while (contents.objects.size() < count) {
            if (areNumbers && recipe_.below(64) < 60)
                contents.objects.push_back(number());
            else
                contents.objects.push_back(count < 4 || recipe_.below(64) > 60 ? thing(2)
                                                                               : plain());
        }
        return contents;
    }

  private:
    std::shared_ptr<Thing> plain() {
        auto thing = std::make_shared<Thing>();
        thing->wide = recipe_.byte();
        return thing;
    }
    std::shared_ptr<Thing> number() {
        if (!numbers_.empty() && recipe_.below(64) > 60)
            return numbers_[recipe_.below(numbers_.size())];
        auto number = std::make_shared<Number>();
        number->wide = recipe_.number();
        number->flag = recipe_.below(2) != 0;
        numbers_.push_back(number);
        return number;
    }
    std::shared_ptr<Thing> thing(int depth) {
        // Those of an archive of their own are of no other.
        if (!made_.empty() && recipe_.below(8) == 7)
            return made_[recipe_.below(made_.size())];
        const bool isOwned = recipe_.below(4) == 3;
        const auto thing = isOwned ? std::make_shared<Owned>() : std::make_shared<Thing>();
        fill(*thing);
        if (depth > 0) {
            if (recipe_.below(3) == 0)
                thing->next = this->thing(depth - 1);
            for (auto more = recipe_.below(4); more > 1; --more)
                thing->things.push_back(this->thing(depth - 1));
            for (auto more = recipe_.below(4); more > 2; --more)
                thing->archives.push_back(Builder(recipe_).nested(depth - 1));
        }
        if (!isOwned)
            made_.push_back(thing);
        return thing;
    }
    std::shared_ptr<NSObject> nested(int depth) {
        auto thing = std::make_shared<Thing>();
        fill(*thing);
        if (depth > 0)
            thing->things.push_back(this->thing(depth - 1));
        return thing;
    }
    void fill(Thing& thing) {
        thing.wide = recipe_.number();
        thing.flag = recipe_.below(2) != 0;
        if (!thing.flag)
            return;
        thing.narrow = recipe_.byte();
        thing.real = static_cast<std::uint64_t>(recipe_.number());
        if (recipe_.below(2) != 0)
            thing.text = recipe_.text();
        if (recipe_.below(3) == 0)
            thing.data = NSData(recipe_.byte(), recipe_.byte());
        if (recipe_.below(3) == 0)
            thing.uuid = NSUUID({recipe_.byte()});
        if (recipe_.below(3) == 0)
            thing.url = NSURL::fileURLWithPath("/a/" + recipe_.text());
        if (recipe_.below(4) == 0)
            thing.path.indexes = {recipe_.byte(), recipe_.byte()};
        if (recipe_.below(4) == 0)
            thing.error = NSError::errorWithDomain(recipe_.text(), recipe_.number(),
                                                   {{"one", recipe_.text()},
                                                    {"two", recipe_.number()},
                                                    {"three", NSURL::fileURLWithPath("/b")},
                                                    {"four", NSErrorRef()}});
        for (auto more = recipe_.below(4); more > 1; --more) {
            thing.urls.push_back(NSURL::fileURLWithPath("/c/" + recipe_.text()));
            thing.strings.push_back(recipe_.text());
            thing.integers.push_back(recipe_.number());
        }
    }

    Recipe& recipe_;
    Things made_;
    Things numbers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::string_view start = "bplist";
    if (std::string_view(reinterpret_cast<const char*>(data), size).starts_with(start)) {
        readByBoth({data, size});
        return 0;
    }
    Recipe recipe({data, size});
    const auto contents = Builder(recipe).contents();
    auto archive = contents.archive();
    const auto copies = readByBoth(archive);
    require(copies && Comparison().same(contents, *copies));
    const auto changes = recipe.below(4);
    for (std::size_t i = 0; i < changes; ++i) {
        const std::size_t high = recipe.byte();
        const auto place = (high << 8 | recipe.byte()) % archive.size();
        // From the end, where the numbers stand, or from the start, where the texts do.
        auto& changed = recipe.below(2) != 0 ? archive[archive.size() - 1 - place] : archive[place];
        changed = static_cast<std::uint8_t>(changed + recipe.byte());
    }
    if (changes != 0)
        readByBoth(archive);
    return 0;
}
