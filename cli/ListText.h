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
    /// As it stands behind "# file:"; empty if nothing does.
    std::string path;
    /// Behind "# owner:" and "# group:"; empty if nothing does.
    std::string owner;
    std::string group;
    /// Behind "# flags:" as FileFacts::flagsText() tells them; empty if nothing does.
    std::string flags;
    /// Behind "# item:" as identityOfFile() tells it; empty if nothing does.
    std::string item;
    /// Behind "# became:", the digest of the list that the item had from then on; empty if nothing
    /// does.
    std::string became;
    /// One of the two is empty.
    std::vector<TextEntry> posix;
    std::vector<Nfs4Entry> nfs4;
};

/// Every list of a text.
std::vector<ListText> parsedLists(std::string_view text, UnknownNames unknown, Problem& problem);

/// The list of the item at `path` as it is stored, in whole lines. Users and groups are told by
/// name, with their numbers behind it. Empty if the entries do not tell what they were read from.
/// `flags` are told as well, unless they are empty.
std::string listAsText(std::string_view path, const EntryList& entries,
                       const std::string& flags = {});

/// The entries of `list` for that item, as if they were read from it.
EntryList entriesOfText(const ListText& list, const MVAclOrigin::Values& item, Problem& problem);

/// A file of lists has at most so many bytes, as it is held in memory, and what it says several
/// times over. --save takes some 200 for an item: these are the lists of two million.
inline constexpr std::size_t mostContent = std::size_t{512} << 20;

/// What the file holds, or standard input for "-".
std::string contentOfFile(const std::string& path, Problem& problem);

/// A path in one word: bytes that would end it as \ooo.
std::string quotedPath(std::string_view path);

}  // namespace morvane
