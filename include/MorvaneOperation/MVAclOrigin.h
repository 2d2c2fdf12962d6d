// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

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

/// The domain of the errors about a list.
inline constexpr const char* MVAclErrorDomain = "MVAclErrorDomain";
enum : std::int64_t {
    /// The list has changed since the entries were read. Nothing was written.
    MVAclChanged = 1,
};

/// The list that entries were read from: its item, and what the item is.
///
///     const auto& origin = entries.front()->origin();
///     if (origin && origin->values().isDirectory)
///         show("These are the entries of a folder.");
///
/// A service sets it on each entry that it sends, and the entries carry it back when they are
/// written. If the list has changed since, the request is refused (MVAclErrorDomain) and the change
/// is not overwritten. New entries have no origin; a host should give them that of the list they
/// are added to, because a list of entries without an origin replaces whatever is there. Entries
/// from a service that does not know of origins have none either. An origin is not compared when
/// entries are.
///
/// The service checks only entries that are written to the very URL they were read from. Under
/// another URL, even one of the same item, they are a copy and replace whatever is there. An empty
/// list carries no origin: read the item again right before emptying its list. A change between the
/// service's check and its write is not noticed.
///
/// Immutable; any thread.
class MORVANE_EXPORT MVAclOrigin final : public NSObject {
  public:
    /// What is known of the item and its list.
    struct Values {
        NSURL url;
        bool isDirectory = false;
        std::uint32_t owner = 0;
        std::uint32_t group = 0;
        MVAclStorage storage = MVAclStorage::posix;
        /// Differs between any two contents of the list, its owner and group included.
        std::string digest;
        bool operator==(const Values&) const = default;
    };
    /// The POSIX lists of the item as the values of their attributes, where entries do not show all
    /// of them: what a mask holds back, or a mask that lets through more than they need. Empty
    /// where entries show everything. ItemList::storedPosixAcl() reads them.
    ///
    /// A service that is given entries with such lists keeps of these lists what the entries do not
    /// change, and not of what the item has. So a host can have a list stored as it was elsewhere
    /// or before, with its mask: it gives the entries of that list an origin with storedListsOf()
    /// it.
    struct StoredLists {
        std::vector<std::uint8_t> list;
        /// The one that new items in the folder start with; empty if there is none.
        std::vector<std::uint8_t> defaults;
        bool operator==(const StoredLists&) const = default;
    };

    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    static std::shared_ptr<const MVAclOrigin> initWithValues(Values values);
    static std::shared_ptr<const MVAclOrigin> initWithValues(Values values, StoredLists stored);
    const Values& values() const;
    const StoredLists& storedLists() const;

    bool isEqual(const NSObject* other) const override;
    void encodeWithCoder(NSKeyedArchiver& coder) const override;
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder);

    /// Public for std::make_shared only; use initWithValues().
    explicit MVAclOrigin(Values values) : values_(std::move(values)) {}
    MVAclOrigin(Values values, StoredLists stored)
        : values_(std::move(values)), stored_(std::move(stored)) {}

  private:
    const Values values_;
    const StoredLists stored_;
};

}  // namespace morvane
