// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/PosixAcl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AclEditor.h"
#include "ListWords.h"

/// POSIX lists as text, in the form of getfacl and setfacl.
namespace morvane {

/// One entry of a POSIX list: "d:u:bob:rwX".
struct TextEntry {
    enum class Who { owner, user, owningGroup, group, mask, others };
    /// Whether it belongs to the list that new items in a folder start with.
    bool isDefault = false;
    Who who = Who::owner;
    /// The number of the user or group.
    std::uint32_t id = 0;
    PosixRights rights = PosixNothing;
    /// Whether "X" is written: execution of folders, and of files that somebody can execute.
    bool executesWhereExecuted = false;
};

/// Whether somebody can execute the item by its list.
bool isExecuted(const PosixList& list);

/// The rights that an entry asks for, depending on whether somebody can execute the item.
PosixRights rightsFor(const TextEntry& entry, bool isExecuted);

/// Gives the subject of the entry these rights in the list, and changes nobody else's.
void give(PosixList& to, const TextEntry& entry, PosixRights rights);

/// Reads a line or a word: "user:bob:r--    #uid=1001". Without `hasRights`, only the subject is
/// written: "user:bob".
TextEntry textEntry(std::string_view text, bool hasRights, UnknownNames unknown, Problem& problem);

/// Reads entries with commas between them, as they are written behind --set, or, without
/// `hasRights`, behind --remove.
std::vector<TextEntry> textEntries(std::string_view text, bool hasRights, Problem& problem);

/// Makes the list of an item from `entries`. If they name a user or group and have no mask, the
/// list gets one that holds nothing back.
std::optional<PosixAcl> posixAclOfText(const std::vector<TextEntry>& entries,
                                       const MVAclOrigin::Values& item, Problem& problem);

/// Writes the list in whole lines. A named user or group is followed by its number, and rights that
/// the mask limits by those that are left.
std::string linesOfPosix(const PosixAcl& acl);

}  // namespace morvane
