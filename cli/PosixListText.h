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
    /// Of the list that new items in a folder start with.
    bool isDefault = false;
    Who who = Who::owner;
    /// The number of the user or group.
    std::uint32_t id = 0;
    PosixRights rights = PosixNothing;
    /// "X": execution of folders, and of files that somebody can execute.
    bool executesWhereExecuted = false;
};

/// The rights that an entry asks for where somebody can execute the item, or nobody.
PosixRights rightsFor(const TextEntry& entry, bool isExecuted);

/// Gives whom the entry is for these rights in the list, and nobody else others.
void give(PosixList& to, const TextEntry& entry, PosixRights rights);

/// Reads a line or a word: "user:bob:r--    #uid=1001"; without `hasRights`, whom an entry is for.
TextEntry textEntry(std::string_view text, bool hasRights, UnknownNames unknown, Problem& problem);

/// Entries with commas between them, as behind --set; without `hasRights` as behind --remove, where
/// none stand.
std::vector<TextEntry> textEntries(std::string_view text, bool hasRights, Problem& problem);

/// The list that `entries` are, for that item. Where they name somebody and tell no mask, it is one
/// that holds nothing back.
std::optional<PosixAcl> posixAclOfText(const std::vector<TextEntry>& entries,
                                       const MVAclOrigin::Values& item, Problem& problem);

/// The list in whole lines: each named user or group with its number behind it, and what the mask
/// holds back of rights with what is left of them.
std::string linesOfPosix(const PosixAcl& acl);

}  // namespace morvane
