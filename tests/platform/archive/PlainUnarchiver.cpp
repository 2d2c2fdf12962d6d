// SPDX-License-Identifier: MIT
#include "PlainUnarchiver.h"

#include <MorvaneOperation/platform/archive/Unicode.h>

#include <algorithm>
#include <bit>
#include <limits>

namespace morvane::test {
namespace {

constexpr std::uint64_t magicSize = 8;
constexpr std::uint64_t trailerSize = 32;

void check(bool condition, const char* otherwise) {
    if (!condition)
        throw PlainRefusal(otherwise);
}

std::string_view characters(NSDataView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// One level of what stands within each other.
class Level {
  public:
    explicit Level(int& depth) : depth_(depth) {
        check(depth > 0, "too deep");
        --depth_;
    }
    ~Level() { ++depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;

  private:
    int& depth_;
};

}  // namespace

PlainList::PlainList(NSDataView bytes) : bytes_(bytes) {
    check(bytes.size() >= magicSize + 1 + 1 + trailerSize, "too short");
    check(std::string(bytes.begin(), bytes.begin() + magicSize) == "bplist00", "no property list");
    const auto trailer = bytes.size() - trailerSize;
    offsetSize_ = bytes[trailer + 6];
    referenceSize_ = bytes[trailer + 7];
    count_ = integerAt(trailer + 8, 8, bytes.size());
    root_ = integerAt(trailer + 16, 8, bytes.size());
    table_ = integerAt(trailer + 24, 8, bytes.size());
    check(offsetSize_ >= 1 && offsetSize_ <= 8, "size of the offsets");
    check(referenceSize_ >= 1 && referenceSize_ <= 8, "size of the references");
    check(table_ > magicSize && table_ < trailer, "the table's place");
    check((trailer - table_) % offsetSize_ == 0, "the table's size");
    check(count_ == (trailer - table_) / offsetSize_, "the number of values");
    check(root_ < count_, "the root");
}

std::uint64_t PlainList::integerAt(std::uint64_t offset, std::uint64_t size,
                                   std::uint64_t end) const {
    check(size <= end && offset <= end - size, "cut off");
    std::uint64_t number = 0;
    for (std::uint64_t i = 0; i < size; ++i)
        number = number << 8 | bytes_[offset + i];
    return number;
}

PlainList::Value PlainList::value(std::uint64_t reference) const {
    check(reference < count_, "a reference to nothing");
    auto at = integerAt(table_ + reference * offsetSize_, offsetSize_, bytes_.size());
    check(at >= magicSize && at < table_, "an offset to nothing");
    const unsigned high = bytes_[at] >> 4;
    const unsigned low = bytes_[at] & 0xF;
    ++at;
    Value value;
    const auto readNumber = [&](Kind kind, std::uint64_t size) {
        value.kind = kind;
        value.number = integerAt(at, size, table_);
    };
    // Leaves `at` where they stand.
    const auto readCount = [&](Kind kind, std::uint64_t size) {
        value.kind = kind;
        std::uint64_t count = low;
        if (low == 15) {
            const auto marker = integerAt(at, 1, table_);
            check(marker >= 0x10 && marker <= 0x13, "a count");
            const auto countSize = std::uint64_t{1} << (marker & 0xF);
            count = integerAt(at + 1, countSize, table_);
            at += 1 + countSize;
        }
        check(count <= (table_ - at) / size, "cut off");
        check(count <= std::numeric_limits<std::uint32_t>::max(), "too long");
        return count;
    };
    const auto readBytes = [&](Kind kind, std::uint64_t unit) {
        const auto size = readCount(kind, unit) * unit;
        value.bytes = bytes_.subspan(at, size);
    };
    const auto readReferences = [&](Kind kind, std::uint64_t each) {
        const auto count = readCount(kind, referenceSize_ * each) * each;
        for (std::uint64_t i = 0; i < count; ++i)
            value.references.push_back(integerAt(at + i * referenceSize_, referenceSize_, table_));
    };
    switch (high) {
        case 0x0:
            check(low == 0 || low == 8 || low == 9, "an unknown value");
            value.kind = low == 0 ? Kind::null : Kind::boolean;
            value.number = low & 1;
            break;
        case 0x1:
            check(low <= 3, "an integer's size");
            readNumber(Kind::integer, 1u << low);
            break;
        case 0x2:
            check(low == 2 || low == 3, "a real number's size");
            readNumber(Kind::real, 1u << low);
            if (low == 2) {
                const auto narrow = std::bit_cast<float>(static_cast<std::uint32_t>(value.number));
                value.number = std::bit_cast<std::uint64_t>(double{narrow});
            }
            break;
        case 0x3:
            check(low == 3, "a date's size");
            readNumber(Kind::date, 8);
            break;
        case 0x4:
            readBytes(Kind::data, 1);
            break;
        case 0x5:
            readBytes(Kind::ascii, 1);
            break;
        case 0x6:
            readBytes(Kind::utf16, 2);
            break;
        case 0x8:
            check(low < 8, "a UID's size");
            readNumber(Kind::uid, low + 1);
            break;
        case 0xA:
        case 0xC:
            readReferences(Kind::array, 1);
            break;
        case 0xD:
            readReferences(Kind::dictionary, 2);
            break;
        default:
            check(false, "an unknown value");
    }
    return value;
}

PlainUnarchiver::PlainUnarchiver(NSDataView archive, const Makers& makers)
    : PlainUnarchiver(archive, makers, nullptr) {}

PlainUnarchiver::PlainUnarchiver(NSDataView archive, const Makers& makers, int* depth)
    : list_(archive), makers_(makers), depth_(depth ? depth : &ownDepth_) {
    const auto root = list_.value(list_.root());
    check(root.kind == Kind::dictionary, "no dictionary");
    check(require(root, "$version", Kind::integer).number == 100000, "another version");
    check(characters(require(root, "$archiver", Kind::ascii).bytes) == "NSKeyedArchiver",
          "another archiver");
    current_ = require(root, "$top", Kind::dictionary);
    objects_ = require(root, "$objects", Kind::array);
    check(!objects_.references.empty(), "no objects");
    constexpr std::size_t few = 8;
    check(objects_.references.size() <= std::max<std::uint64_t>(list_.count(), few),
          "more objects than values");
}

std::optional<PlainUnarchiver::Value> PlainUnarchiver::find(const Value& dictionary,
                                                            std::string_view key) const {
    const auto count = dictionary.references.size() / 2;
    check(count <= 64, "too many keys");
    std::optional<std::size_t> found;
    for (std::size_t i = 0; i < count; ++i) {
        const auto name = list_.value(dictionary.references[i]);
        if (name.kind != Kind::ascii || characters(name.bytes) != key)
            continue;
        check(!found, "a key stands there twice");
        found = i;
    }
    if (!found)
        return std::nullopt;
    return list_.value(dictionary.references[count + *found]);
}

PlainUnarchiver::Value PlainUnarchiver::require(const Value& dictionary, std::string_view key,
                                                Kind kind) const {
    auto value = find(dictionary, key);
    check(value && value->kind == kind, "another value");
    return *std::move(value);
}

std::uint64_t PlainUnarchiver::uidOf(const Value& reference) const {
    check(reference.kind == Kind::uid, "no reference");
    check(reference.number < objects_.references.size(), "a reference out of the archive");
    return reference.number;
}

std::optional<PlainUnarchiver::Value> PlainUnarchiver::referred(std::string_view key) const {
    auto value = find(key);
    return value && uidOf(*value) != 0 ? value : std::nullopt;
}

const NSClass& PlainUnarchiver::classOf(const Value& object, const NSClassSet& classes) const {
    check(object.kind == Kind::dictionary, "no object");
    const auto description = follow(require(object, "$class", Kind::uid));
    check(description.kind == Kind::dictionary, "no class");
    const auto name = characters(require(description, "$classname", Kind::ascii).bytes);
    std::vector<std::string_view> ancestry;
    for (const auto reference : require(description, "$classes", Kind::array).references) {
        const auto ancestor = list_.value(reference);
        check(ancestor.kind == Kind::ascii, "an ancestor that is no name");
        ancestry.push_back(characters(ancestor.bytes));
    }
    static const std::map<std::string_view, const NSClass*> aliases = {
        {"NSMutableArray", &NSArrayClass},
        {"NSMutableDictionary", &NSDictionaryClass},
        {"NSMutableString", &NSStringClass},
        {"NSMutableData", &NSDataClass}};
    for (const auto* c : classes) {
        std::vector<std::string_view> expected;
        if (const auto alias = aliases.find(name); alias != aliases.end() && alias->second == c)
            expected.push_back(name);
        else if (c->name != name)
            continue;
        for (const auto* k = c; k; k = k->superclass)
            expected.push_back(k->name);
        check(ancestry == expected, "another ancestry");
        return *c;
    }
    throw PlainRefusal("a class that is not allowed");
}

bool PlainUnarchiver::isNil(std::string_view key) {
    const auto value = find(key);
    return !value || (value->kind == Kind::uid && value->number == 0);
}

bool PlainUnarchiver::isArray(std::string_view key) {
    if (isNil(key))
        return false;
    try {
        array(key);
        return true;
    } catch (const PlainRefusal&) {
        return false;
    }
}

bool PlainUnarchiver::decodeBool(std::string_view key) {
    return containsValueForKey(key) && require(current_, key, Kind::boolean).number != 0;
}

std::int64_t PlainUnarchiver::decodeInt64(std::string_view key) {
    return containsValueForKey(key)
               ? static_cast<std::int64_t>(require(current_, key, Kind::integer).number)
               : 0;
}

std::int32_t PlainUnarchiver::decodeInt32(std::string_view key) {
    const auto number = decodeInt64(key);
    check(number == static_cast<std::int32_t>(number), "too large");
    return static_cast<std::int32_t>(number);
}

double PlainUnarchiver::decodeDouble(std::string_view key) {
    return containsValueForKey(key)
               ? std::bit_cast<double>(require(current_, key, Kind::real).number)
               : 0;
}

std::string PlainUnarchiver::text(const Value& value) const {
    if (value.kind == Kind::dictionary) {
        classOf(value, {&NSStringClass});
        const auto inner = find(value, "NS.string");
        check(inner && inner->kind != Kind::dictionary, "no text");
        return text(*inner);
    }
    if (value.kind == Kind::utf16) {
        auto utf8 = utf8FromUtf16BigEndian(value.bytes);
        check(utf8.has_value(), "no Unicode");
        return *std::move(utf8);
    }
    check(value.kind == Kind::ascii, "no text");
    check(std::all_of(value.bytes.begin(), value.bytes.end(), [](auto c) { return c < 0x80; }),
          "no ASCII");
    return {value.bytes.begin(), value.bytes.end()};
}

std::optional<std::string> PlainUnarchiver::decodeString(std::string_view key) {
    const auto value = referred(key);
    return value ? std::optional(text(follow(*value))) : std::nullopt;
}

NSData PlainUnarchiver::data(const Value& value) const {
    if (value.kind == Kind::dictionary) {
        classOf(value, {&NSDataClass});
        return data(require(value, "NS.data", Kind::data));
    }
    check(value.kind == Kind::data, "no data");
    return {value.bytes.begin(), value.bytes.end()};
}

std::optional<NSData> PlainUnarchiver::decodeData(std::string_view key) {
    const auto value = referred(key);
    return value ? std::optional(data(follow(*value))) : std::nullopt;
}

std::optional<NSUUID> PlainUnarchiver::decodeUUID(std::string_view key) {
    const auto value = referred(key);
    if (!value)
        return std::nullopt;
    const auto object = follow(*value);
    classOf(object, {&NSUUIDClass});
    const auto bytes = require(object, "NS.uuidbytes", Kind::data).bytes;
    NSUUID::Bytes uuid;
    check(bytes.size() == uuid.size(), "a UUID's size");
    std::copy(bytes.begin(), bytes.end(), uuid.begin());
    return NSUUID(uuid);
}

NSURL PlainUnarchiver::url(const Value& reference) const {
    const auto object = follow(reference);
    classOf(object, {&NSURLClass});
    const auto base = find(object, "NS.base");
    check(!base || uidOf(*base) == 0, "a relative URL");
    const auto relative = find(object, "NS.relative");
    check(relative.has_value(), "a URL without a text");
    auto url = NSURL::URLWithString(text(follow(*relative)));
    check(url.has_value(), "a malformed URL");
    return *std::move(url);
}

std::optional<NSURL> PlainUnarchiver::decodeURL(std::string_view key) {
    const auto value = referred(key);
    return value ? std::optional(url(*value)) : std::nullopt;
}

NSIndexPath PlainUnarchiver::decodeIndexPath(std::string_view key) {
    NSIndexPath path;
    const auto value = referred(key);
    if (!value)
        return path;
    const auto object = follow(*value);
    classOf(object, {&NSIndexPathClass});
    const auto length = require(object, "NSIndexPathLength", Kind::integer).number;
    if (find(object, "NSIndexPathValue")) {
        const auto index = require(object, "NSIndexPathValue", Kind::integer).number;
        check(length == 1 && static_cast<std::int64_t>(index) >= 0, "a malformed index path");
        return {{index}};
    }
    const auto reference = find(object, "NSIndexPathData");
    check(reference.has_value(), "an index path without indexes");
    const auto bytes = data(follow(*reference));
    check(bytes.size() % 8 == 0 && bytes.size() / 8 == length, "a malformed index path");
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i % 8 == 0)
            path.indexes.push_back(0);
        path.indexes.back() = path.indexes.back() << 8 | bytes[i];
    }
    return path;
}

std::vector<std::uint64_t> PlainUnarchiver::array(std::string_view key) const {
    const auto value = referred(key);
    if (!value)
        return {};
    const auto object = follow(*value);
    classOf(object, {&NSArrayClass});
    return require(object, "NS.objects", Kind::array).references;
}

std::vector<NSURL> PlainUnarchiver::decodeURLs(std::string_view key) {
    std::vector<NSURL> urls;
    for (const auto reference : array(key))
        urls.push_back(url(list_.value(reference)));
    return urls;
}

std::vector<std::string> PlainUnarchiver::decodeStrings(std::string_view key) {
    std::vector<std::string> strings;
    for (const auto reference : array(key))
        strings.push_back(text(follow(list_.value(reference))));
    return strings;
}

std::vector<std::int64_t> PlainUnarchiver::decodeIntegers(std::string_view key) {
    std::vector<std::int64_t> integers;
    for (const auto reference : array(key)) {
        const auto value = follow(list_.value(reference));
        check(value.kind == Kind::integer, "no integer");
        integers.push_back(static_cast<std::int64_t>(value.number));
    }
    return integers;
}

NSErrorRef PlainUnarchiver::decodeError(std::string_view key) {
    const auto value = referred(key);
    return value ? error(*value) : nullptr;
}

NSErrorRef PlainUnarchiver::error(const Value& reference) {
    if (uidOf(reference) == 0)
        return nullptr;
    const Level level(*depth_);
    const auto object = follow(reference);
    classOf(object, {&NSError::classObject()});
    const auto domain = find(object, "NSDomain");
    check(domain.has_value(), "an error without a domain");
    const auto code = require(object, "NSCode", Kind::integer).number;
    NSErrorUserInfo userInfo;
    if (const auto info = find(object, "NSUserInfo"); info && uidOf(*info) != 0) {
        const auto dictionary = follow(*info);
        classOf(dictionary, {&NSDictionaryClass});
        const auto names = require(dictionary, "NS.keys", Kind::array).references;
        const auto values = require(dictionary, "NS.objects", Kind::array).references;
        check(names.size() == values.size(), "a malformed dictionary");
        for (std::size_t i = 0; i < names.size(); ++i) {
            const auto name = text(follow(list_.value(names[i])));
            check(userInfo.emplace(name, errorValue(list_.value(values[i]))).second,
                  "a dictionary with a key twice");
        }
    }
    return NSError::errorWithDomain(text(follow(*domain)), static_cast<std::int64_t>(code),
                                    std::move(userInfo));
}

NSErrorValue PlainUnarchiver::errorValue(const Value& reference) {
    if (uidOf(reference) == 0)
        return NSErrorRef();
    const auto value = follow(reference);
    if (value.kind == Kind::integer)
        return static_cast<std::int64_t>(value.number);
    if (value.kind != Kind::dictionary)
        return text(value);
    const auto& c =
        classOf(value, {&NSURLClass, &NSError::classObject(), &NSStringClass, &NSArrayClass});
    if (&c == &NSURLClass)
        return url(reference);
    if (&c == &NSStringClass)
        return text(value);
    if (&c != &NSArrayClass)
        return error(reference);
    const Level level(*depth_);
    std::vector<NSErrorRef> errors;
    for (const auto each : require(value, "NS.objects", Kind::array).references)
        errors.push_back(error(list_.value(each)));
    return errors;
}

std::shared_ptr<NSObject> PlainUnarchiver::decodeObject(std::string_view key,
                                                        const NSClassSet& classes) {
    const auto value = find(key);
    return value ? object(uidOf(*value), classes) : nullptr;
}

std::shared_ptr<NSObject> PlainUnarchiver::object(std::uint64_t uid, const NSClassSet& classes) {
    if (uid == 0)
        return nullptr;
    const auto dictionary = objectAt(uid);
    const auto& c = classOf(dictionary, classes);
    const auto maker = makers_.find(&c);
    check(maker != makers_.end(), "a class of which nothing can be made");
    if (c.standsOnce)
        check(standing_.insert(uid).second, "an object in two places");
    else if (const auto made = made_.find(uid); made != made_.end())
        return made->second;
    check(within_.insert(uid).second, "an object that holds itself");
    const Level level(*depth_);
    const auto outer = std::exchange(current_, dictionary);
    auto object = maker->second(*this);
    current_ = outer;
    within_.erase(uid);
    if (!c.standsOnce)
        made_[uid] = object;
    return object;
}

std::vector<std::shared_ptr<NSObject>> PlainUnarchiver::readObjects(std::string_view key,
                                                                    const NSClassSet& classes) {
    std::vector<std::shared_ptr<NSObject>> objects;
    for (const auto reference : array(key)) {
        objects.push_back(object(uidOf(list_.value(reference)), classes));
        check(objects.back() != nullptr, "nil in an array");
    }
    return objects;
}

std::vector<std::shared_ptr<NSObject>> PlainUnarchiver::decodeArchives(std::string_view key,
                                                                       const NSClass& root) {
    std::vector<std::shared_ptr<NSObject>> objects;
    for (const auto reference : array(key)) {
        const auto uid = uidOf(list_.value(reference));
        check(standing_.insert(uid).second, "a nested archive in two places");
        const auto archive = data(objectAt(uid));
        PlainUnarchiver nested(archive, makers_, depth_);
        objects.push_back(nested.decodeObject("root", {&root}));
        check(objects.back() != nullptr, "a nested archive without an object");
    }
    return objects;
}

}  // namespace morvane::test
