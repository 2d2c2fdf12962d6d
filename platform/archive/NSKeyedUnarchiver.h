#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>

#include <concepts>
#include <functional>

/// Reads keyed archives that came from anyone, with a set of allowed classes for each key.
///
///     auto result = NSKeyedUnarchiver::unarchivedObjectOfClasses({&MVAclEntry::classObject()},
///     data,
///                                                                &error);
///
///     std::shared_ptr<NSObject> MVAclPermission::initWithCoder(NSKeyedUnarchiver& coder) {
///         auto name = coder.decodeString("name");
///         auto permission = coder.decodeInt32("permission");
///         ...
///
/// A class is checked before anything of it is constructed. What is damaged, of a class that is not
/// allowed at its key, lies about its class's ancestry, refers to itself, or does not fit (an
/// integer too large for its field, a text that is not UTF-8) fails the whole decode: the decode
/// operations throw NSArchiveFailure, which the entry points turn into an error of
/// NSCocoaErrorDomain, code NSCoderReadCorruptError, whose description names the key. Nothing wraps
/// silently.
///
/// One budget covers an archive and all archives nested in it. An unarchiver is used on one thread.
namespace morvane {

/// Unwinds a decode; carries the error. Never leaves the entry points of this class.
class MORVANE_EXPORT NSArchiveFailure final : public std::exception {
  public:
    NSArchiveFailure(std::string_view key, const std::string& what);
    ~NSArchiveFailure() override;
    const NSErrorRef& error() const { return error_; }
    const char* what() const noexcept override { return what_.c_str(); }

  private:
    NSErrorRef error_;
    std::string what_;
};

/// What one decode may use, its nested archives included. Everything counts down.
struct NSDecodingBudget {
    /// Bytes of archives opened, plus bytes of strings and data taken out of them.
    std::uint64_t bytes = std::uint64_t{1} << 30;
    /// Objects, values and array elements read.
    std::uint64_t objects = std::uint64_t{1} << 26;
    /// Objects within objects, nested archives included.
    std::uint32_t depth = 64;

    /// The budget for one archive of `size` bytes: a small archive cannot unfold into much.
    static NSDecodingBudget forArchiveOfSize(std::size_t size);
};

class MORVANE_EXPORT NSKeyedUnarchiver {
  public:
    /// The object under "root", whose class must be in `classes`. Null with `*error` set on
    /// failure; null without an error if the archive holds nil. `error` may be null.
    static std::shared_ptr<NSObject> unarchivedObjectOfClasses(const NSClassSet& classes,
                                                               NSDataView data, NSErrorRef* error);

    /// Opens an archive whose "$top" holds several keys (a message). `data` must outlive the
    /// unarchiver. Throws NSArchiveFailure.
    explicit NSKeyedUnarchiver(NSDataView data);
    ~NSKeyedUnarchiver();
    NSKeyedUnarchiver(const NSKeyedUnarchiver&) = delete;
    NSKeyedUnarchiver& operator=(const NSKeyedUnarchiver&) = delete;

    bool containsValueForKey(std::string_view key);

    // A missing key reads as false, 0, nil or an empty array; a value of another type throws.
    bool decodeBool(std::string_view key);
    std::int32_t decodeInt32(std::string_view key);
    std::int64_t decodeInt64(std::string_view key);
    double decodeDouble(std::string_view key);
    std::optional<std::string> decodeString(std::string_view key);
    /// The same without a copy: good until the next text is decoded.
    std::optional<std::string_view> decodeText(std::string_view key);
    std::optional<NSData> decodeData(std::string_view key);
    std::optional<NSUUID> decodeUUID(std::string_view key);
    std::optional<NSURL> decodeURL(std::string_view key);
    NSIndexPath decodeIndexPath(std::string_view key);
    /// User-info values may be strings, integers, URLs and errors.
    NSErrorRef decodeError(std::string_view key);
    std::shared_ptr<NSObject> decodeObject(std::string_view key, const NSClassSet& classes);

    /// Whether `key` holds an array; nil is not one.
    bool isArray(std::string_view key);
    /// Every element must be an object of a class in `classes` other than NSArray: an array, nil or
    /// a value standing there throws. `classes` must contain NSArray.
    std::vector<std::shared_ptr<NSObject>> decodeObjects(std::string_view key,
                                                         const NSClassSet& classes);
    std::vector<NSURL> decodeURLs(std::string_view key);
    std::vector<std::string> decodeStrings(std::string_view key);
    std::vector<std::int64_t> decodeIntegers(std::string_view key);
    /// Each element is a data blob holding a whole archive with an object of exactly class `root`
    /// under "root", read within this decode's budget.
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key,
                                                          const NSClass& root);

  private:
    struct MORVANE_INTERNAL State;
    using Classes = std::span<const NSClass* const>;

    /// Null when the archive is nested in another.
    std::unique_ptr<State> own_;
    State* state_;
    explicit NSKeyedUnarchiver(State& state);

    // Where the archive keeps the object; null for nil.
    std::shared_ptr<NSObject>* decodeObjectOfClasses(std::string_view key, Classes classes);
    std::shared_ptr<NSObject>* objectAt(std::uint64_t uid, std::string_view key, Classes classes);
    template <class Read>
    void readArray(std::string_view key, Read&& read);
};

}  // namespace morvane
