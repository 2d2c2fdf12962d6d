// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Reads keyed archives in the plainest way that there is: each value is read anew
/// whenever it is asked for, each key is looked for among all texts, each class is checked each
/// time. What NSKeyedUnarchiver reads or refuses, this reads or refuses as well, but it has no
/// budget of bytes and objects: a fuzzer and the tests hold one beside the other.
namespace morvane::test {

class PlainRefusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The values of a binary property list, by their number.
class PlainList {
  public:
    enum class Kind {
        null,
        boolean,
        integer,
        real,
        date,
        data,
        ascii,
        utf16,
        uid,
        array,
        dictionary
    };
    struct Value {
        Kind kind = Kind::null;
        /// Of a boolean, an integer or a UID; the bits of a real number.
        std::uint64_t number = 0;
        /// Of data and texts; where they stand.
        NSDataView bytes;
        /// Elements; of a dictionary all keys, then all values.
        std::vector<std::uint64_t> references;
    };

    explicit PlainList(NSDataView bytes);
    Value value(std::uint64_t reference) const;
    std::uint64_t root() const { return root_; }
    std::uint64_t count() const { return count_; }

  private:
    std::uint64_t integerAt(std::uint64_t offset, std::uint64_t size, std::uint64_t end) const;

    NSDataView bytes_;
    std::uint64_t offsetSize_ = 0;
    std::uint64_t referenceSize_ = 0;
    std::uint64_t count_ = 0;
    std::uint64_t root_ = 0;
    std::uint64_t table_ = 0;
};

/// The calls are those of NSKeyedUnarchiver; each throws PlainRefusal.
class PlainUnarchiver {
  public:
    /// How an object of each class is made.
    using Makers = std::map<const NSClass*, std::shared_ptr<NSObject> (*)(PlainUnarchiver&)>;

    PlainUnarchiver(NSDataView archive, const Makers& makers);

    template <class T>
    std::shared_ptr<T> makeObject() {
        return std::make_shared<T>();
    }

    bool containsValueForKey(std::string_view key) { return find(key).has_value(); }
    bool isNil(std::string_view key);
    bool isArray(std::string_view key);
    bool decodeBool(std::string_view key);
    std::int32_t decodeInt32(std::string_view key);
    std::int64_t decodeInt64(std::string_view key);
    double decodeDouble(std::string_view key);
    std::optional<std::string> decodeString(std::string_view key);
    std::optional<NSData> decodeData(std::string_view key);
    std::optional<NSUUID> decodeUUID(std::string_view key);
    std::optional<NSURL> decodeURL(std::string_view key);
    NSIndexPath decodeIndexPath(std::string_view key);
    NSErrorRef decodeError(std::string_view key);
    std::vector<NSURL> decodeURLs(std::string_view key);
    std::vector<std::string> decodeStrings(std::string_view key);
    std::vector<std::int64_t> decodeIntegers(std::string_view key);
    std::shared_ptr<NSObject> decodeObject(std::string_view key, const NSClassSet& classes);
    template <class T = NSObject>
    std::vector<std::shared_ptr<T>> decodeObjects(std::string_view key, const NSClassSet& classes) {
        std::vector<std::shared_ptr<T>> objects;
        for (const auto& object : readObjects(key, classes)) {
            objects.push_back(std::dynamic_pointer_cast<T>(object));
            if (!objects.back())
                throw PlainRefusal("an element is of another class");
        }
        return objects;
    }
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key,
                                                          const NSClass& root);
    /// It does not matter what they begin with.
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key, const NSClass& root,
                                                          const NSArchiveFront&) {
        return decodeArchives(key, root);
    }

  private:
    using Kind = PlainList::Kind;
    using Value = PlainList::Value;

    PlainUnarchiver(NSDataView archive, const Makers& makers, int* depth);

    std::optional<Value> find(std::string_view key) const { return find(current_, key); }
    std::optional<Value> find(const Value& dictionary, std::string_view key) const;
    Value require(const Value& dictionary, std::string_view key, Kind kind) const;
    std::uint64_t uidOf(const Value& reference) const;
    Value follow(const Value& reference) const { return objectAt(uidOf(reference)); }
    Value objectAt(std::uint64_t uid) const { return list_.value(objects_.references.at(uid)); }
    /// Empty for nil and for what is not there.
    std::optional<Value> referred(std::string_view key) const;
    const NSClass& classOf(const Value& object, const NSClassSet& classes) const;
    std::string text(const Value& value) const;
    NSData data(const Value& value) const;
    NSURL url(const Value& reference) const;
    NSErrorRef error(const Value& reference);
    NSErrorValue errorValue(const Value& reference);
    /// The references to the elements of an array.
    std::vector<std::uint64_t> array(std::string_view key) const;
    std::shared_ptr<NSObject> object(std::uint64_t uid, const NSClassSet& classes);
    std::vector<std::shared_ptr<NSObject>> readObjects(std::string_view key,
                                                       const NSClassSet& classes);

    const PlainList list_;
    const Makers& makers_;
    int ownDepth_ = 64;
    /// How many objects may still stand within each other, over all nested archives.
    int* const depth_;
    Value objects_;
    /// The dictionary whose keys are asked for.
    Value current_;
    std::map<std::uint64_t, std::shared_ptr<NSObject>> made_;
    /// What may stand in one place only, and does.
    std::set<std::uint64_t> standing_;
    /// What is being made.
    std::set<std::uint64_t> within_;
};

}  // namespace morvane::test
