// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVAclOrigin.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// \file
/// What every host shows of an entry: its texts, and the choices of its menus.
///
///     const auto entry = MVAclEntry::newEntryForDirectory(false);
///     show(shownText(whoText(*entry)));                  // user alice
///     show(shownText(permissionsText(*entry)));          // Read and Write
///     for (const auto& choice : permissionChoices(*entry, nullptr))
///         show(shownText(choice.name));                  // All, Read and Write, Read, Write
///
/// Texts are phrases; shownText() says one to people. None of the functions asks a service, and
/// only ownerText() and owningGroupText() ask the user database. They are used on the thread of the
/// entries, the main thread.

namespace morvane {

/// The text in the language of this process (Phrase::localized()), as valid UTF-8: a byte of a name
/// that is not part of UTF-8 becomes U+FFFD.
MORVANE_EXPORT std::string shownText(const Phrase& phrase);
/// Likewise a file name or another text that is the same in every language.
MORVANE_EXPORT std::string shownName(std::string_view bytes);

/// What kind of somebody an entry is for, for an icon beside the name.
enum class EntrySubject : std::int32_t {
    user = 1,
    group = 2,
    /// The item's owner: the flat entry, which every POSIX list has.
    owner = 3,
    owningGroup = 4,
    /// Whoever makes an item in the folder.
    creator = 5,
    creatorGroup = 6,
    everyone = 7,
    /// Somebody whom this system does not know.
    nobody = 8,
};
MORVANE_EXPORT EntrySubject subjectOfEntry(const MVAclEntry& entry);

/// Whom the entry is for: "user alice", "user root (owner)", "group staff (owning group)",
/// "creator", "everyone".
MORVANE_EXPORT Phrase whoText(const MVAclEntry& entry);
/// "Allow" or "Deny"; "Tag 7" for another tag.
MORVANE_EXPORT Phrase ruleText(std::int32_t tag);
/// A choice of the menu by its code, one of MVAclPermissionGroup: "Read and Write". Empty for
/// another code.
MORVANE_EXPORT Phrase choiceText(std::int64_t code);
/// What the entry's permissions are: a choice of the menu, or "Custom (Read, part of Write)".
MORVANE_EXPORT Phrase permissionsText(const MVAclEntry& entry);
/// The permissions in the letters of the item's list: "rw-" in a POSIX list and for the rights of a
/// mode, "rwaxtTnNcC" in an allow/deny list. What an entry denies has the same letters.
MORVANE_EXPORT std::string lettersOfEntry(const MVAclEntry& entry, MVAclStorage storage);
/// What the entry applies to: "This item, Child files".
MORVANE_EXPORT Phrase appliesToText(const MVAclEntry& entry);
/// "inherited"; empty for an entry that is not.
MORVANE_EXPORT Phrase inheritedText(const MVAclEntry& entry);
/// The name of a check box or of a group of them: "Read Data". Empty for a node without a box.
MORVANE_EXPORT Phrase boxText(const NSTreeNode& node);

/// "folder" or "file".
MORVANE_EXPORT Phrase kindText(const MVAclOrigin::Values& item);
/// How the item's list is stored: "POSIX list", "mode (the file system has no lists)", "NFSv4
/// list".
MORVANE_EXPORT Phrase storageText(MVAclStorage storage);
/// The item's owner, "user alice", and its owning group, "group staff". They may wait for the user
/// database.
MORVANE_EXPORT Phrase ownerText(const MVAclOrigin::Values& item);
MORVANE_EXPORT Phrase owningGroupText(const MVAclOrigin::Values& item);

/// A row of a menu.
struct EntryChoice {
    std::int64_t code = 0;
    Phrase name;
    /// Why it cannot be chosen; empty if it can. The one that the entry has now may be such a one.
    Phrase whyNot;

    bool operator==(const EntryChoice&) const = default;
};

// The menus have the present choice of the entry among them, always. `list` is the item's list,
// where it is known: without one nothing but the entry itself forbids a choice.

/// What the entry may allow or deny as a whole. The codes are those of MVAclPermissionGroup, to be
/// set with MVAclEntry::setPermissionGroup(); MVAclGroupCustom is among them only if the entry has
/// it now, and cannot be chosen.
MORVANE_EXPORT std::vector<EntryChoice> permissionChoices(const MVAclEntry& entry,
                                                          const ItemList* list);
/// "Allow" and "Deny". The codes are those of MVAclTag, to be set with MVAclEntry::setTag().
MORVANE_EXPORT std::vector<EntryChoice> ruleChoices(const MVAclEntry& entry, const ItemList* list);
/// What a folder's entry may apply to. The codes are made of the values of acl_flags whose boxes
/// are on, to be set with setAppliesTo(). A file's entry and a flat one have one choice, which is
/// appliesToCode().
MORVANE_EXPORT std::vector<EntryChoice> appliesToChoices(const MVAclEntry& entry,
                                                         const ItemList* list);
/// The code of what the entry applies to now.
MORVANE_EXPORT std::int64_t appliesToCode(const MVAclEntry& entry);
/// Switches the boxes of "Applies To" as one of appliesToChoices() says, like clicks on them.
/// Answers whether the entry applies to that now: not if it is inherited, or has no such boxes.
MORVANE_EXPORT bool setAppliesTo(MVAclEntry& entry, std::int64_t code);

/// Why the box, a node of the entry's tree, cannot be switched on; empty if it can. A box that is
/// on may always be switched off unless the entry is inherited.
MORVANE_EXPORT Phrase whyNotBox(const MVAclEntry& entry, const NSTreeNode& box,
                                const ItemList* list);
/// Why nothing of the entry can be changed but its mark as inherited: that mark. Empty if it can.
MORVANE_EXPORT Phrase whyNotChanged(const MVAclEntry& entry);
/// Why the entry cannot be removed: the three entries of the base are in every list. Empty if it
/// can.
MORVANE_EXPORT Phrase whyNotRemoved(const MVAclEntry& entry);

}  // namespace morvane
