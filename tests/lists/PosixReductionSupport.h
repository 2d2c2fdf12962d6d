// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// Entries for the tests of what they become as a POSIX list.
namespace morvane::reduction {

inline constexpr PosixRights r = PosixRead;
inline constexpr PosixRights w = PosixWrite;
inline constexpr PosixRights x = PosixExecute;
inline constexpr PosixRights none = PosixNothing;
inline constexpr PosixRights rw = r | w;
inline constexpr PosixRights rx = r | x;
inline constexpr PosixRights rwx = r | w | x;

// Ids that the user database does not have, so that entries are named by their UUID alone.
inline constexpr std::uint32_t owner = 3000001;
inline constexpr std::uint32_t group = 3000002;
inline constexpr std::uint32_t alice = 3000003;
inline constexpr std::uint32_t bob = 3000004;
inline constexpr std::uint32_t staff = 3000005;
inline constexpr std::uint32_t guests = 3000006;

using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

inline std::vector<std::uint32_t> groupsOf(std::uint32_t uid) {
    return uid == alice ? std::vector{staff} : std::vector<std::uint32_t>{};
}

inline PosixAclTarget target(bool isDirectory = false) {
    return {owner, group, isDirectory, std::nullopt, groupsOf};
}

/// For a file whose list is `list`.
inline PosixAclTarget changing(const PosixList& list) {
    return {owner, group, false, PosixAcl{owner, group, false, list, {}}, groupsOf};
}

inline std::shared_ptr<MVAclEntry> flat(const CBPosixIdentity& who, PosixRights rights) {
    const PosixAcl acl{.owner = owner,
                       .group = group,
                       .isDirectory = false,
                       .access = {rights, rights, rights, {}, {}, {}},
                       .defaults = {}};
    for (const auto& entry : entriesOfPosixAcl(acl)) {
        if (entry->uuid() == uuidOfPosixIdentity(who))
            return entry;
    }
    throw std::logic_error("no flat entry is for this identity");
}

/// An entry whose boxes are exactly `boxes`; for a folder with these flags on as well.
inline std::shared_ptr<MVAclEntry> tree(std::int32_t tag, const CBPosixIdentity& who,
                                        std::uint32_t boxes, bool isDirectory = false,
                                        std::set<std::uint32_t> applies = {
                                            ACL_ENTRY_ONLY_INHERIT}) {
    auto nodes = permissionTree(boxes, isDirectory);
    if (isDirectory) {
        auto flags = MVTreeNode::treeNodeWithRepresentedObject(
            MVAclPermission::initWithName("Applies To", 0x2000, MVStateOff));
        for (const acl_perm_entry* row = acl_flags; row->name; ++row) {
            flags->mutableChildNodes().append(
                MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::initWithName(
                    row->name, static_cast<std::int32_t>(row->perm),
                    applies.contains(row->perm) ? MVStateOn : MVStateOff)));
        }
        nodes.push_back(std::move(flags));
    }
    return MVAclEntry::initWithUuid(uuidOfPosixIdentity(who), tag, std::move(nodes), false);
}

inline const std::set<std::uint32_t> childrenOnly{
    ACL_ENTRY_FILE_INHERIT, ACL_ENTRY_DIRECTORY_INHERIT, ACL_ENTRY_LIMIT_INHERIT};
inline const std::set<std::uint32_t> everything{ACL_ENTRY_ONLY_INHERIT, ACL_ENTRY_FILE_INHERIT,
                                                ACL_ENTRY_DIRECTORY_INHERIT,
                                                ACL_ENTRY_LIMIT_INHERIT};

inline std::shared_ptr<MVAclEntry> allow(const CBPosixIdentity& who, PosixRights rights) {
    return tree(1, who, boxesOfRights(rights, false, false, false));
}
inline std::shared_ptr<MVAclEntry> deny(const CBPosixIdentity& who, PosixRights rights) {
    return tree(2, who, boxesOfRights(rights, true, false, false));
}

/// The base of a file that its owner writes and nobody else reads.
inline Entries base(PosixRights u = rw, PosixRights g = none, PosixRights o = none) {
    return {flat(CBPosixUser{owner}, u), flat(CBPosixGroup{group}, g), flat(CBEveryone{}, o)};
}

inline Entries operator+(Entries a, const Entries& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline PosixList reduced(const Entries& entries, const PosixAclTarget& whose = target()) {
    const auto result = reduceToPosixAcl(entries, whose);
    EXPECT_THAT(textsOfLosses(result.losses), testing::IsEmpty());
    return result.acl.access;
}

/// What is lost, without the entry's identity.
inline std::vector<std::string> losses(const Entries& entries, bool isDirectory = false) {
    std::vector<std::string> texts;
    for (const auto& loss : reduceToPosixAcl(entries, target(isDirectory)).losses)
        texts.push_back("entry " + std::to_string(loss.entry + 1) + ": " + loss.text().english());
    return texts;
}

using Losses = std::vector<std::string>;

}  // namespace morvane::reduction
