// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

/// What one entry of a list grants: read, write and execute.
enum PosixRights : std::uint8_t {
    PosixNothing = 0,
    PosixExecute = 1,
    PosixWrite = 2,
    PosixRead = 4,
    PosixEverything = 7,
};

constexpr PosixRights operator&(PosixRights a, PosixRights b) {
    return static_cast<PosixRights>(static_cast<unsigned>(a) & static_cast<unsigned>(b));
}
constexpr PosixRights operator|(PosixRights a, PosixRights b) {
    return static_cast<PosixRights>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}
/// The rights of `a` that are not in `b`.
constexpr PosixRights operator-(PosixRights a, PosixRights b) {
    return static_cast<PosixRights>(static_cast<unsigned>(a) & ~static_cast<unsigned>(b));
}

/// The rights in letters: "rw-".
MORVANE_EXPORT std::string lettersOfRights(PosixRights rights);

/// The entry of a named user or a named group.
struct PosixNamedRights {
    std::uint32_t id = 0;
    PosixRights rights = PosixNothing;
    auto operator<=>(const PosixNamedRights&) const = default;
};

/// One list, as it is stored: the mask is not yet applied.
struct PosixList {
    PosixRights owner = PosixNothing;
    PosixRights owningGroup = PosixNothing;
    PosixRights others = PosixNothing;
    std::optional<PosixRights> mask;
    /// Sorted by id.
    std::vector<PosixNamedRights> users;
    std::vector<PosixNamedRights> groups;

    /// What `stored` grants to the owning group.
    PosixRights effective(PosixRights stored) const {
        return stored & mask.value_or(PosixEverything);
    }
    /// What `stored` grants to a named user or a named group. If the mask is empty the kernel
    /// ignores the list, and treats whoever is named there as others.
    PosixRights counting(PosixRights stored) const {
        return mask == PosixNothing ? others : effective(stored);
    }

    /// Whether the mask takes from somebody a right that is stored.
    MORVANE_EXPORT bool isLimited() const;

    bool operator==(const PosixList&) const = default;
};

/// The list as the value of its extended attribute.
MORVANE_EXPORT std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list);

/// The list that is the value of an attribute; empty if it is none that a kernel would store.
MORVANE_EXPORT std::optional<PosixList> posixListOfAttribute(
    const std::vector<std::uint8_t>& bytes);

/// Adds a mask to `wanted`, whose rights are those that shall have an effect, and the rights that
/// the mask of `old` holds back of those that stay. `old` is the list that there was, or null if
/// there was none.
MORVANE_EXPORT PosixList withMask(PosixList wanted, const PosixList* old);

/// The access-control list of an item of a local file system, as values.
struct PosixAcl {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
    PosixList access;
    /// The list that new items in a folder start with.
    std::optional<PosixList> defaults;
    /// False on a file system that stores nothing but the rights of the mode.
    bool hasLists = true;

    bool operator==(const PosixAcl&) const = default;
};

/// A digest that differs between any two contents of a list, its owner and group included.
MORVANE_EXPORT std::string digestOf(const PosixAcl& acl);

}  // namespace morvane
