// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// \file
/// Allow/deny lists as a network mount (or a file system that enforces them itself) stores them.
///
///     const Nfs4Acl list{.entries = {{.mask = 0x1, .who = nfs4Everyone}}};
///     const auto stored = encodeNfs4Acl(list, Nfs4Form::named);
///     assert(decodeNfs4Acl(*stored, Nfs4Form::named) == list);
///
/// Pure: no system call, no user database. What is decoded encodes to the very same bytes.

namespace morvane {

/// How the list is stored. The name of the extended attribute tells which form it is.
enum class Nfs4Form {
    /// system.nfs4_acl: each entry names its user or group with a text.
    named,
    /// system.nfs4_acl_xdr: each entry names its user or group with a number.
    numbered,
};

/// Returns the name of the extended attribute that has a list in this form.
MORVANE_EXPORT const char* attributeOfForm(Nfs4Form form);

enum Nfs4Type : std::uint32_t { Nfs4Allow = 0, Nfs4Deny = 1, Nfs4Audit = 2, Nfs4Alarm = 3 };

enum Nfs4Flag : std::uint32_t {
    Nfs4FileInherit = 0x1,
    Nfs4FolderInherit = 0x2,
    Nfs4NoPropagate = 0x4,
    Nfs4InheritOnly = 0x8,
    Nfs4IsGroup = 0x40,
    Nfs4Inherited = 0x80,
};

enum Nfs4ListFlag : std::uint32_t { Nfs4Trivial = 0x10000, Nfs4Folder = 0x20000 };

constexpr const char* nfs4Owner = "OWNER@";
constexpr const char* nfs4OwningGroup = "GROUP@";
constexpr const char* nfs4Everyone = "EVERYONE@";

/// One entry of an allow/deny list, as it is stored.
struct Nfs4Entry {
    std::uint32_t type = Nfs4Allow;
    std::uint32_t flags = 0;
    std::uint32_t mask = 0;
    /// "OWNER@", "GROUP@", "EVERYONE@", "name@domain", or an id in decimal.
    std::string who;
    bool operator==(const Nfs4Entry&) const = default;
};

/// An allow/deny list, as it is stored.
struct Nfs4Acl {
    /// Values of Nfs4ListFlag; the named form has no flags.
    std::uint32_t flags = 0;
    std::vector<Nfs4Entry> entries;
    bool operator==(const Nfs4Acl&) const = default;
};

constexpr std::size_t maxNfs4Entries = 1024;
constexpr std::size_t maxNfs4Who = 1024;

/// Empty if `bytes` are not exactly one list within the limits.
MORVANE_EXPORT std::optional<Nfs4Acl> decodeNfs4Acl(std::span<const std::uint8_t> bytes,
                                                    Nfs4Form form);

/// Empty if the form cannot hold the list: it has too many entries, or list flags or texts in a
/// form that has none.
MORVANE_EXPORT std::optional<std::vector<std::uint8_t>> encodeNfs4Acl(const Nfs4Acl& acl,
                                                                      Nfs4Form form);

/// The number that `who` is in decimal; empty for any other text.
MORVANE_EXPORT std::optional<std::uint32_t> idOfNfs4Who(const std::string& who);

}  // namespace morvane
