// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/Nfs4Acl.h>
#include <MorvaneOperation/PosixAcl.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AclEditor.h"
#include "EntryText.h"

/// Lists as text: as getfacl and nfs4_getfacl write them, and as --save does.
///
///     # file: notes.txt
///     # owner: alice
///     # group: staff
///     user::rw-
///     user:bob:r--    #uid=1001
///     ...
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

    bool isSameWho(const TextEntry& other) const {
        return isDefault == other.isDefault && who == other.who && id == other.id;
    }
};

/// The list of one item.
struct ListText {
    /// As it stands behind "# file:"; empty if nothing does.
    std::string path;
    /// Behind "# owner:" and "# group:"; empty if nothing does.
    std::string owner;
    std::string group;
    /// Behind "# item:" as identityOfFile() tells it; empty if nothing does.
    std::string item;
    /// One of the two is empty.
    std::vector<TextEntry> posix;
    std::vector<Nfs4Entry> nfs4;
};

/// The rights that an entry asks for where somebody can execute the item, or nobody.
PosixRights rightsFor(const TextEntry& entry, bool isExecuted);

/// Whether an entry names the owner or the owning group, whose rights stand in the entries without
/// a name: the model has one entry for each.
bool isOwnersByName(const TextEntry& entry, const MVAclOrigin::Values& item);
/// Why such an entry is refused.
std::string ownersByName(const TextEntry& entry);

/// Entries with commas between them, as behind --set; without `hasRights` as behind --remove, where
/// none stand.
std::vector<TextEntry> textEntries(std::string_view text, bool hasRights, Problem& problem);

/// What stands for a user or group whose name this system does not know.
enum class UnknownNames {
    /// Nothing: the name is wrong.
    areRefused,
    /// The number behind the entry, as the list was written when there was such a name.
    haveNumbers
};

/// Every list of a text.
std::vector<ListText> parsedLists(std::string_view text, UnknownNames unknown, Problem& problem);

/// The list of the item at `path`, in whole lines. Users and groups are told by name, with their
/// numbers behind it. Empty if the entries do not tell what they were read from.
std::string listAsText(std::string_view path, const EntryList& entries);

/// The entries of `list` for that item.
EntryList entriesOfText(const ListText& list, const MVAclOrigin::Values& item, Problem& problem);

/// What the file holds, or standard input for "-".
std::string contentOfFile(const std::string& path, Problem& problem);

/// A path in one word: bytes that would end it as \ooo.
std::string quotedPath(std::string_view path);

}  // namespace morvane
