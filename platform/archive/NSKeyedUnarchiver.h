// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>

#include <concepts>
#include <cstddef>
#include <functional>
#include <typeinfo>
#include <utility>

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
    /// Bytes of archives opened, plus bytes of strings and data taken out of them, plus those of
    /// the objects made.
    std::uint64_t bytes = std::uint64_t{1} << 30;
    /// Objects, values and array elements read.
    std::uint64_t objects = std::uint64_t{1} << 26;
    /// Objects within objects, nested archives included.
    std::uint32_t depth = 64;

    /// The budget for one archive of `size` bytes: a small archive cannot unfold into much, and
    /// none into more than `most`.
    static NSDecodingBudget forArchiveOfSize(std::size_t size, const NSDecodingBudget& most);
};

/// Reads keyed archives that came from anyone, with a set of allowed classes for each key.
///
///     NSErrorRef error;
///     auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses(
///         {&MVFileSizeItem::classObject()}, bytes, &error);
///     if (error)
///         show(error);
///
/// Texts and data may be values at their key or objects of their own. A class is checked before
/// anything of it is constructed. An archive is refused as a whole if it is damaged, holds an
/// object of a class that is not allowed at its key, lies about the ancestry of a class, refers to
/// itself, or has a value that does not fit (an integer too large for its field, a text that is not
/// UTF-8). The decode operations then throw NSArchiveFailure, which the entry points turn into an
/// error of NSCocoaErrorDomain with the code NSCoderReadCorruptError, whose description names the
/// key. No integer is ever truncated silently.
///
/// One budget covers an archive and all archives nested in it. An unarchiver is used on one thread.
class MORVANE_EXPORT NSKeyedUnarchiver {
  public:
    /// The object under "root", whose class must be in `classes`. Null with `*error` set on
    /// failure; null without an error if the archive holds nil. `error` may be null.
    static std::shared_ptr<NSObject> unarchivedObjectOfClasses(const NSClassSet& classes,
                                                               NSDataView data, NSErrorRef* error);

    /// Opens an archive whose "$top" holds several keys (a message). `data` must outlive the
    /// unarchiver; decoding it uses no more than `most`. Throws NSArchiveFailure.
    explicit NSKeyedUnarchiver(NSDataView data, const NSDecodingBudget& most = {});
    ~NSKeyedUnarchiver();
    NSKeyedUnarchiver(const NSKeyedUnarchiver&) = delete;
    NSKeyedUnarchiver& operator=(const NSKeyedUnarchiver&) = delete;

    /// For initWithCoder: makes the object within the budget. The many objects of a large array
    /// stand side by side in memory.
    template <class T, class... Arguments>
    std::shared_ptr<T> makeObject(Arguments&&... arguments) {
        constexpr std::size_t control = 32;  // beside the object, generously
        if (auto* const block = takeRoom(sizeof(T) + control))
            return std::allocate_shared<T>(BlockAllocator<T>(*block),
                                           std::forward<Arguments>(arguments)...);
        return std::make_shared<T>(std::forward<Arguments>(arguments)...);
    }

    /// What is left of what decoding it may use.
    NSDecodingBudget budgetLeft() const;

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

    /// Whether there is nothing at `key`, or nil.
    bool isNil(std::string_view key);
    /// Whether the value at `key` is an array.
    bool isArray(std::string_view key);
    /// Every element must be a T of a class in `classes` other than NSArray: an array, nil or a
    /// value standing there throws. `classes` must contain NSArray. A large array that is all that
    /// the archive holds is given away: decoded once more, it is of new objects.
    template <std::derived_from<NSObject> T = NSObject>
    std::vector<std::shared_ptr<T>> decodeObjects(std::string_view key, const NSClassSet& classes) {
        ElementsOf<T> elements;
        readObjects(key, classes, elements);
        return std::move(elements.objects);
    }
    std::vector<NSURL> decodeURLs(std::string_view key);
    std::vector<std::string> decodeStrings(std::string_view key);
    std::vector<std::int64_t> decodeIntegers(std::string_view key);
    /// Each element is a data blob holding a whole archive with an object of exactly class `root`
    /// under "root", read within this decode's budget. A blob may be used once only.
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key,
                                                          const NSClass& root);
    /// The same of archives that mostly begin with `front`.
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key, const NSClass& root,
                                                          const NSArchiveFront& front);

  private:
    /// Memory of several objects of one large array.
    class MORVANE_INTERNAL ObjectBlock;
    /// Puts one object there.
    template <class T>
    class BlockAllocator {
      public:
        using value_type = T;
        explicit BlockAllocator(ObjectBlock& block) : block_(&block) {}
        template <class Other>
        BlockAllocator(const BlockAllocator<Other>& other) : block_(other.block_) {}
        T* allocate(std::size_t) { return static_cast<T*>(allocateIn(*block_, sizeof(T))); }
        void deallocate(T*, std::size_t) noexcept { releaseIn(*block_); }

      private:
        template <class>
        friend class BlockAllocator;
        ObjectBlock* block_;
    };
    static void* allocateIn(ObjectBlock& block, std::size_t size) noexcept;
    static void releaseIn(ObjectBlock& block) noexcept;
    /// Counts an object of that size against the budget. Null outside large arrays.
    ObjectBlock* takeRoom(std::size_t size);

    /// The elements of an array, in their order.
    class Elements {
      public:
        virtual void reserve(std::size_t count) = 0;
        /// False for an object of another class, which the caller keeps.
        virtual bool append(std::shared_ptr<NSObject>&& object) = 0;
        virtual std::shared_ptr<NSObject> at(std::size_t index) const = 0;

      protected:
        ~Elements() = default;
    };
    template <class T>
    struct ElementsOf final : Elements {
        std::vector<std::shared_ptr<T>> objects;

        void reserve(std::size_t count) override { objects.reserve(count); }
        bool append(std::shared_ptr<NSObject>&& object) override {
            const NSObject& held = *object;
            // Mostly the very class.
            auto* const element = typeid(held) == typeid(T) ? static_cast<T*>(object.get())
                                                            : dynamic_cast<T*>(object.get());
            if (element)
                objects.emplace_back(std::move(object), element);
            return element != nullptr;
        }
        std::shared_ptr<NSObject> at(std::size_t index) const override { return objects[index]; }
    };
    void readObjects(std::string_view key, const NSClassSet& classes, Elements& elements);

    struct MORVANE_INTERNAL State;
    using Classes = std::span<const NSClass* const>;

    /// Null when the archive is nested in another.
    std::unique_ptr<State> own_;
    State* state_;
    explicit NSKeyedUnarchiver(State& state);

    // Null for nil. The archive holds it for whoever reaches it again, unless it is held elsewhere.
    std::shared_ptr<NSObject> decodeObject(std::string_view key, Classes classes, bool holds);
    std::shared_ptr<NSObject> objectAt(std::uint64_t uid, std::string_view key, Classes classes,
                                       bool holds);
    std::vector<std::shared_ptr<NSObject>> decodeArchives(std::string_view key, const NSClass& root,
                                                          const ArchiveFront& front);
    // The object of an archive that is nested in this one.
    MORVANE_INTERNAL std::shared_ptr<NSObject> archivedObject(std::string_view key,
                                                              NSDataView archive,
                                                              const NSClass& root,
                                                              const ArchiveFront& front);
    MORVANE_INTERNAL std::shared_ptr<NSObject> readArchive(std::string_view key, NSDataView archive,
                                                           const NSClass& root,
                                                           const ArchiveFront& front);
    MORVANE_INTERNAL void remember(NSDataView archive, const NSObject& object,
                                   const NSDecodingBudget& before,
                                   const ArchiveFront& front) noexcept;
    template <class Read>
    void readArray(std::string_view key, Read&& read);
    template <class Read>
    void readElements(std::string_view key, Read&& read);
};

}  // namespace morvane
