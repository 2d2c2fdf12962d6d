// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVAclOrigin.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "AclEditor.h"
#include "EntryText.h"
#include "Nfs4ListText.h"
#include "PosixListText.h"

/// Lists as text: as getfacl and nfs4_getfacl write them, and as --save does.
///
///     # file: notes.txt
///     # owner: alice
///     # group: staff
///     user::rw-
///     user:bob:r--    #uid=1001
///     ...
namespace morvane {

/// The list of one item.
struct ListText {
    /// The path behind "# file:"; empty if there is none.
    std::string path;
    /// The names behind "# owner:" and "# group:"; empty if there are none.
    std::string owner;
    std::string group;
    /// Behind "# flags:" as FileFacts::flagsText() tells them; empty if nothing does.
    std::string flags;
    /// The identityOfFile() behind "# item:"; empty if there is none.
    std::string item;
    /// The digest behind "# became:", of the list that has taken the place of this one; empty if
    /// there is none.
    std::string became;
    /// At least one of the two is empty.
    std::vector<TextEntry> posix;
    std::vector<Nfs4Entry> nfs4;
};

/// Reads every list in a text.
std::vector<ListText> parsedLists(std::string_view text, UnknownNames unknown, Problem& problem);

/// The list of the item at `path` as it is stored, in whole lines. Users and groups are told by
/// name, with their numbers behind it. Empty if the entries do not tell what they were read from.
/// `flags` are told as well, unless they are empty.
std::string listAsText(std::string_view path, const EntryList& entries,
                       const std::string& flags = {});

/// The entries of `list` for that item, as if they were read from it.
EntryList entriesOfText(const ListText& list, const MVAclOrigin::Values& item, Problem& problem);

/// The most bytes of a file of lists: it is held in memory, and what is read from it takes several
/// times as much. --save writes some 200 bytes for an item, so this is enough for two million.
inline constexpr std::size_t mostContent = std::size_t{512} << 20;

/// Returns the text of the file, or of standard input for "-".
std::string contentOfFile(const std::string& path, Problem& problem);

/// Returns the path as one word, in which bytes that would end it are written as \ooo.
std::string quotedPath(std::string_view path);

}  // namespace morvane
