#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstdint>
#include <memory>
#include <string>

namespace morvane {

/// How the list of an item is stored.
enum class MVAclStorage : std::int32_t {
    /// A POSIX list: owner, owning group, others, named users and groups, a mask.
    posix = 1,
    /// The rights of the mode, on a file system without lists.
    mode = 2,
    /// An allow/deny list.
    nfs4 = 3,
};

/// Of the errors about a list.
inline constexpr const char* MVAclErrorDomain = "MVAclErrorDomain";
enum : std::int64_t {
    /// The list has changed since the entries were read that were to be written. Nothing was done.
    MVAclChanged = 1,
};

/// Which list entries were read from: of which item, and what the item is.
///
///     const auto& origin = entries.front()->origin();
///     if (origin && origin->values().isDirectory)
///         show("These are the entries of a folder.");
///
/// A service gives it to each entry that it sends, and entries carry it back when they are written:
/// a list that has changed meanwhile is then refused instead of lost (MVAclErrorDomain). Entries
/// that were not read have none, unless the host gives them that of the list they are for: it
/// should, as otherwise a list of new entries alone replaces whatever is there. Nor have those of a
/// service that does not know of it. It is no part of what an entry says: equality does not see it.
///
/// The check counts only where the entries are written to the very URL that they were read from:
/// under another, though it names the same item, they are a copy and replace whatever is there. A
/// list without entries tells nothing: read again right before it is written. And a moment remains
/// between the service's look and its write, in which a change is not noticed.
///
/// Immutable; any thread.
class MORVANE_EXPORT MVAclOrigin final : public NSObject {
  public:
    struct Values {
        NSURL url;
        bool isDirectory = false;
        std::uint32_t owner = 0;
        std::uint32_t group = 0;
        MVAclStorage storage = MVAclStorage::posix;
        /// Tells one content of the list, owner and group included, from another.
        std::string digest;
        bool operator==(const Values&) const = default;
    };

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    static std::shared_ptr<const MVAclOrigin> initWithValues(Values values);
    const Values& values() const { return values_; }

    bool isEqual(const NSObject* other) const override;
    void encodeWithCoder(NSKeyedArchiver& coder) const override;
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);

    /// Public for std::make_shared only; use initWithValues().
    explicit MVAclOrigin(Values values) : values_(std::move(values)) {}

  private:
    const Values values_;
};

}  // namespace morvane
