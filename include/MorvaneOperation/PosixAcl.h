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
/// What of `a` is not in `b`.
constexpr PosixRights operator-(PosixRights a, PosixRights b) {
    return static_cast<PosixRights>(static_cast<unsigned>(a) & ~static_cast<unsigned>(b));
}

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
    /// What `stored` grants to a named user or a named group. Under a mask of nothing the kernel
    /// does not look at the list, and takes who is named there for others.
    PosixRights counting(PosixRights stored) const {
        return mask == PosixNothing ? others : effective(stored);
    }

    bool operator==(const PosixList&) const = default;
};

/// The value of the extended attribute that is the list.
MORVANE_EXPORT std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list);

/// The access-control list of an item of a local file system, as values.
struct PosixAcl {
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    bool isDirectory = false;
    PosixList access;
    /// What new items in a folder start with.
    std::optional<PosixList> defaults;
    /// False on a file system that keeps the rights of the mode alone.
    bool hasLists = true;

    bool operator==(const PosixAcl&) const = default;
};

/// Tells one content of a list, owner and group included, from another.
MORVANE_EXPORT std::string digestOf(const PosixAcl& acl);

}  // namespace morvane
