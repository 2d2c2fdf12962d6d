// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/foundation/NSUUID.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace morvane {

class CBIdentityAuthority;

/// A user, told from the UUID alone.
struct CBPosixUser {
    std::uint32_t uid;
    bool operator==(const CBPosixUser&) const = default;
};
/// A group, told from the UUID alone.
struct CBPosixGroup {
    std::uint32_t gid;
    bool operator==(const CBPosixGroup&) const = default;
};
/// Everyone: all users of the system.
struct CBEveryone {
    bool operator==(const CBEveryone&) const = default;
};
/// Somebody whom only the entries that a folder gives to new items are for: the user who makes the
/// item, or the group that the item gets.
struct CBCreator {
    bool isGroup = false;
    bool operator==(const CBCreator&) const = default;
};
/// Whom a UUID stands for, told from the UUID alone.
using CBPosixIdentity = std::variant<CBPosixUser, CBPosixGroup, CBEveryone, CBCreator>;

/// Computes the UUID that stands for the identity.
MORVANE_EXPORT NSUUID uuidOfPosixIdentity(const CBPosixIdentity& identity);
/// Empty for a UUID that nobody has.
MORVANE_EXPORT std::optional<CBPosixIdentity> posixIdentityOfUUID(const NSUUID& uuid);

/// Users and groups of the system, by UUID and by name.
///
///     auto& authority = CBIdentityAuthority::defaultIdentityAuthority();
///     auto root = CBIdentity::identityWithUniqueIdentifier(uuidOfPosixIdentity(CBPosixUser{0}),
///                                                          authority);
///     assert(root->name() == "root");
///
/// A UUID is computed from the uid or gid and back, without asking the user database; "everyone",
/// "creator" and "creator group" have UUIDs of their own. Look-ups go to the system's user database
/// (any source that it is configured for) and are remembered for a few seconds, misses included.
/// Safe from any thread; identities are immutable.
class MORVANE_EXPORT CBIdentity final : public NSObject {
  public:
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// Null if there is no such user or group (also for a uid or gid that has no name).
    static std::shared_ptr<const CBIdentity> identityWithUniqueIdentifier(
        const NSUUID& uuid, const CBIdentityAuthority& authority);
    /// A user of that name, else a group of that name, else null; "everyone" is everyone.
    static std::shared_ptr<const CBIdentity> identityWithName(const std::string& name,
                                                              const CBIdentityAuthority& authority);

    const NSUUID& uniqueIdentifier() const;
    const std::string& name() const;
    /// True for groups and for everyone.
    bool isGroup() const;

    /// Same unique identifier.
    bool isEqual(const NSObject* other) const override;

    CBIdentity(const NSUUID& uniqueIdentifier, std::string name, bool isGroup);

  private:
    NSUUID uniqueIdentifier_;
    std::string name_;
    bool isGroup_;
};

using CBIdentityRef = std::shared_ptr<const CBIdentity>;

}  // namespace morvane
