// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/archive/PropertyListWriter.h>
#include <MorvaneOperation/platform/foundation/NSException.h>

#include <functional>
#include <map>

/// Small model classes, and a builder of archives that no archiver would write.
namespace morvane::test {

/// One key of every type.
class Values final : public NSObject {
  public:
    bool flag = false;
    std::int32_t narrow = 0;
    std::int64_t wide = 0;
    double real = 0;
    std::optional<std::string> text;
    NSData data;
    std::optional<NSUUID> uuid;
    std::optional<NSURL> url;
    NSIndexPath path;
    NSErrorRef error;
    std::vector<NSURL> urls;
    std::vector<std::string> strings;
    std::vector<std::int64_t> integers;

    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        auto v = std::make_shared<Values>();
        v->flag = coder.decodeBool("flag");
        v->narrow = coder.decodeInt32("narrow");
        v->wide = coder.decodeInt64("wide");
        v->real = coder.decodeDouble("real");
        v->text = coder.decodeString("text");
        v->data = coder.decodeData("data").value_or(NSData());
        v->uuid = coder.decodeUUID("uuid");
        v->url = coder.decodeURL("url");
        v->path = coder.decodeIndexPath("path");
        v->error = coder.decodeError("error");
        v->urls = coder.decodeURLs("urls");
        v->strings = coder.decodeStrings("strings");
        v->integers = coder.decodeIntegers("integers");
        return v;
    }
    static const NSClass& classObject() {
        static const NSClass c{"Values", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeBool(flag, "flag");
        coder.encodeInt32(narrow, "narrow");
        coder.encodeInt64(wide, "wide");
        coder.encodeDouble(real, "real");
        coder.encodeString(text, "text");
        coder.encodeData(data, "data");
        coder.encodeUUID(uuid, "uuid");
        coder.encodeURL(url, "url");
        coder.encodeIndexPath(path, "path");
        coder.encodeError(error, "error");
        coder.encodeURLs(urls, "urls");
        coder.encodeStrings(strings, "strings");
        coder.encodeIntegers(integers, "integers");
    }
};

/// A node that holds others: below it, beside it, and in archives of their own.
class Node final : public NSObject {
  public:
    std::int64_t number = 0;
    std::shared_ptr<NSObject> next;
    std::vector<std::shared_ptr<NSObject>> objects;
    std::vector<std::shared_ptr<NSObject>> archives;

    static const NSClassSet& classes() {
        static const NSClassSet set{&classObject(), &NSArrayClass};
        return set;
    }
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        ++made();
        auto node = std::make_shared<Node>();
        node->number = coder.decodeInt64("number");
        if (node->number == -99)
            throwRangeException(4, 3);
        node->next = coder.decodeObject("next", {&classObject()});
        node->objects = coder.decodeObjects("objects", classes());
        node->archives = coder.decodeArchives("archives", classObject());
        return node;
    }
    /// How many were made by decoding.
    static int& made() {
        static int count = 0;
        return count;
    }
    static const NSClass& classObject() {
        static const NSClass c{"Node", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeInt64(number, "number");
        if (next)
            coder.encodeObject(next.get(), "next");
        if (!objects.empty())
            coder.encodeObjects(objects, "objects");
        if (!archives.empty())
            coder.encodeArchives(archives, "archives");
    }
};

/// A text and two integers, and at times another label. One without another is remembered by the
/// archive of its own that it stands in.
class Label final : public NSObject {
  public:
    std::optional<std::string> text;
    std::int64_t number = 0;
    std::int64_t other = 0;
    std::shared_ptr<Label> next;

    /// How many were read and made on this thread.
    inline static thread_local int read = 0;
    inline static thread_local int made = 0;

    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        ++read;
        auto label = coder.makeObject<Label>();
        label->text = coder.decodeString("text");
        label->number = coder.decodeInt64("number");
        label->other = coder.decodeInt64("other");
        label->next = std::static_pointer_cast<Label>(coder.decodeObject("next", {&classObject()}));
        return label;
    }
    static const NSClass& classObject() {
        static const NSClass c{"Label", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
    void encodeWithCoder(NSKeyedArchiver& coder) const override {
        coder.encodeString(text, "text");
        coder.encodeInt64(number, "number");
        coder.encodeInt64(other, "other");
        coder.encodeObject(next.get(), "next");
    }
    static const NSArchiveFront& front() {
        static constexpr NSBriefCoding brief{
            .get =
                [](const NSObject& object, NSBriefCoding::Values& values) {
                    const auto& label = static_cast<const Label&>(object);
                    values = {label.text, {label.number, label.other}};
                    return !label.next;
                },
            .make = [](NSKeyedUnarchiver& coder,
                       const NSBriefCoding::Values& values) -> std::shared_ptr<NSObject> {
                ++made;
                auto label = coder.makeObject<Label>();
                label->text = values.text;
                label->number = values.integers[0];
                label->other = values.integers[1];
                return label;
            }};
        static const NSArchiveFront front({"root", "text", "number", "other", "next"},
                                          {&classObject()}, &brief);
        return front;
    }
};

/// Builds a keyed archive by hand: the objects by UID (0 is "$null"), root at UID 1.
class ArchiveBuilder {
  public:
    using Ref = PropertyListWriter::Ref;

    ArchiveBuilder() { objects.push_back(list.string("$null")); }

    std::uint32_t add(Ref value) {
        objects.push_back(value);
        return static_cast<std::uint32_t>(objects.size() - 1);
    }
    Ref uid(std::uint32_t value) { return list.uid(value); }
    Ref dictionary(const std::vector<std::pair<std::string_view, Ref>>& pairs) {
        std::vector<Ref> refs;
        for (const auto& [key, value] : pairs) {
            refs.push_back(list.string(key));
            refs.push_back(value);
        }
        return list.dictionary(refs);
    }
    /// A class dictionary as its own object.
    Ref classNamed(std::string_view name, const std::vector<std::string_view>& ancestry) {
        std::vector<Ref> names;
        for (const auto ancestor : ancestry)
            names.push_back(list.string(ancestor));
        return uid(
            add(dictionary({{"$classname", list.string(name)}, {"$classes", list.array(names)}})));
    }
    NSData finish() { return finish(dictionary({{"root", uid(1)}})); }
    NSData finish(Ref top) {
        NSData bytes;
        list.write(dictionary({{"$version", list.integer(100000)},
                               {"$archiver", list.string("NSKeyedArchiver")},
                               {"$top", top},
                               {"$objects", list.array(objects)}}),
                   bytes);
        return bytes;
    }

    PropertyListWriter list;
    std::vector<Ref> objects;
};

/// Decodes a Node (or `classes`); the description of the error, "" for success.
inline std::string failure(NSDataView bytes, const NSClassSet& classes) {
    NSErrorRef error;
    const auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses(classes, bytes, &error);
    if (!error)
        return "";
    if (object || error->domain() != NSCocoaErrorDomain || error->code() != NSCoderReadCorruptError)
        return "wrong kind of error";
    return error->localizedDescription();
}
inline std::string failure(NSDataView bytes) {
    return failure(bytes, {&Node::classObject()});
}
inline std::string refusal(std::string_view key, std::string_view what) {
    return "The archive cannot be read: for key \"" + std::string(key) + "\", " +
           std::string(what) + ".";
}

template <class T>
std::shared_ptr<T> roundTrip(const T& object) {
    NSErrorRef error;
    auto copy = NSKeyedUnarchiver::unarchivedObjectOfClasses(
        {&T::classObject()}, NSKeyedArchiver::archivedDataWithRootObject(object), &error);
    if (error)
        throw std::runtime_error(error->localizedDescription());
    return std::dynamic_pointer_cast<T>(copy);
}

}  // namespace morvane::test
