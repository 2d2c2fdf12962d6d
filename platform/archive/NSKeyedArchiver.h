// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSIndexPath.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morvane {

using NSData = std::vector<std::uint8_t>;
using NSDataView = std::span<const std::uint8_t>;

/// A sequence of bytes, in one piece or in several.
struct NSDataPieces {
    NSData first;
    std::vector<NSData> others;

    NSDataPieces() = default;
    NSDataPieces(NSData whole) : first(std::move(whole)) {}
    std::size_t size() const {
        auto size = first.size();
        for (const auto& piece : others)
            size += piece.size();
        return size;
    }
};

class ArchiveFront;

/// What many archives of one kind of object begin with: keys and classes that all of them have. It
/// is for archives that stand in another one by the dozen: they are written and read faster if both
/// sides name the same front. With another one, or none, they are read as well.
class MORVANE_EXPORT NSArchiveFront {
  public:
    /// The classes are those of the objects, and NSArray if an object holds an array. `brief` is
    /// of the first of them, that of the object that an archive is of; null if there is none such.
    NSArchiveFront(std::initializer_list<std::string_view> keys,
                   std::initializer_list<const NSClass*> classes,
                   const NSBriefCoding* brief = nullptr);
    ~NSArchiveFront();
    NSArchiveFront(const NSArchiveFront&) = delete;
    NSArchiveFront& operator=(const NSArchiveFront&) = delete;

  private:
    friend class NSKeyedArchiver;
    friend class NSKeyedUnarchiver;
    std::unique_ptr<const ArchiveFront> front_;
};

/// Writes objects as keyed archives: binary property lists ("bplist00") with "$version" 100000,
/// "$archiver" "NSKeyedArchiver", "$top" and "$objects", readable by any property-list reader.
///
///     auto item = MVFileSizeItem::initWithSize(1500);
///     NSData archive = NSKeyedArchiver::archivedDataWithRootObject(*item);
///     assert(std::string(archive.begin(), archive.begin() + 8) == "bplist00");
///
/// An object that is reached twice is written once. An archiver is used on one thread; it holds no
/// objects after the archive is finished. Keys are string literals: the archiver keeps views of
/// them until the archive is finished.
class MORVANE_EXPORT NSKeyedArchiver {
  public:
    /// The whole archive of one object, under the key "root". Throws NSInvalidArgumentException if
    /// an object's class does not support secure coding.
    static NSData archivedDataWithRootObject(const NSObject& root);

    NSKeyedArchiver();
    ~NSKeyedArchiver();
    NSKeyedArchiver(const NSKeyedArchiver&) = delete;
    NSKeyedArchiver& operator=(const NSKeyedArchiver&) = delete;

    // Each writes one value under `key` of the object being encoded (of "$top" outside objects).
    // Nil values are written as the archive's null object.
    void encodeBool(bool value, std::string_view key);
    void encodeInt32(std::int32_t value, std::string_view key);
    void encodeInt64(std::int64_t value, std::string_view key);
    void encodeDouble(double value, std::string_view key);
    void encodeString(std::optional<std::string_view> value, std::string_view key);
    void encodeData(NSDataView value, std::string_view key);
    /// Takes the bytes over: what is large is a piece of the archive as it is, not a copy in it.
    void encodeOwnedData(NSData value, std::string_view key);
    void encodeUUID(const std::optional<NSUUID>& value, std::string_view key);
    void encodeURL(const std::optional<NSURL>& value, std::string_view key);
    void encodeIndexPath(const NSIndexPath& value, std::string_view key);
    void encodeError(const NSErrorRef& value, std::string_view key);
    /// An object of a class that supports secure coding, or null.
    void encodeObject(const NSObject* value, std::string_view key);

    // Arrays (class NSArray).
    void encodeObjects(std::span<const std::shared_ptr<NSObject>> values, std::string_view key);
    template <class T>
    void encodeObjects(const std::vector<std::shared_ptr<T>>& values, std::string_view key) {
        beginArray(values.size());
        for (const auto& value : values)
            appendObject(value.get());
        endArray(key);
    }
    void encodeURLs(std::span<const NSURL> values, std::string_view key);
    void encodeStrings(std::span<const std::string> values, std::string_view key);
    void encodeIntegers(std::span<const std::int64_t> values, std::string_view key);
    /// An array of data blobs, each the whole archive of one object, as that class's own coding
    /// asks.
    template <class T>
    void encodeArchives(const std::vector<std::shared_ptr<T>>& values, std::string_view key) {
        beginArray(values.size());
        for (const auto& value : values)
            appendArchive(*value);
        endArray(key);
    }
    /// The same; each archive begins with `front`, which lives as long as the process.
    template <class T>
    void encodeArchives(const std::vector<std::shared_ptr<T>>& values, std::string_view key,
                        const NSArchiveFront& front) {
        beginArray(values.size());
        for (const auto& value : values)
            appendArchive(*value, front);
        endArray(key);
    }

    /// Ends the archive and hands it over. The archiver cannot be used after this.
    NSData finishEncoding();
    /// The same without joining the pieces.
    NSDataPieces finishEncodingInPieces();

  private:
    friend class NSKeyedUnarchiver;

    void beginArray(std::size_t count);
    void appendObject(const NSObject* value);
    void appendArchive(const NSObject& value);
    void appendArchive(const NSObject& value, const NSArchiveFront& front);
    void appendArchive(const NSObject& value, const ArchiveFront& front);
    MORVANE_INTERNAL static void writeArchive(const NSObject& value, const ArchiveFront& front,
                                              NSData& out);
    void endArray(std::string_view key);
    void endPlainArray(std::string_view key);
    void encodeURLValue(const NSURL& value);
    void appendErrorValue(const NSErrorValue& value);

    struct MORVANE_INTERNAL State;
    explicit NSKeyedArchiver(const ArchiveFront& front);

    std::unique_ptr<State> state_;
};

}  // namespace morvane
