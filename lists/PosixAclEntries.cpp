// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclPermission.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <MorvaneOperation/acl_perms.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <variant>

namespace morvane {

namespace {

/// The tree entries of one list, in the order in which the list is evaluated. They come in three
/// parts, between which the base of the access list is inserted.
struct TreeEntries {
    std::vector<ShownRights> owner;
    std::vector<ShownRights> users;
    std::vector<ShownRights> owningGroup;
    std::vector<ShownRights> groups;
    std::vector<ShownRights> others;
};

/// Adds what is shown for one identity to which the list grants `granted`, if the classes that are
/// evaluated later grant `later`.
void add(std::vector<ShownRights>& entries, const CBPosixIdentity& who, PosixRights granted,
         PosixRights later, const ShownRights& applies) {
    ShownRights entry = applies;
    entry.who = who;
    if (const PosixRights denied = later - granted; denied != PosixNothing) {
        entry.deny = true;
        entry.rights = denied;
        entries.push_back(entry);
    }
    entry.deny = false;
    entry.rights = granted;
    entries.push_back(entry);
}

/// Does the same for a named user or group. One without a right is shown as denied all of them,
/// because the kernel stops at this entry.
void addNamed(std::vector<ShownRights>& entries, const CBPosixIdentity& who, PosixRights granted,
              PosixRights later, const ShownRights& applies) {
    if (granted != PosixNothing)
        return add(entries, who, granted, later, applies);
    ShownRights entry = applies;
    entry.who = who;
    entry.deny = true;
    entry.rights = PosixEverything;
    entries.push_back(entry);
}

/// `owner` and `group` are those of the item. If they are named beside their classes, no class that
/// is evaluated later applies to them, because they are not others.
TreeEntries treeEntriesOf(const PosixList& list, const ShownRights& applies,
                          std::optional<std::uint32_t> owner = {},
                          std::optional<std::uint32_t> group = {}) {
    TreeEntries result;
    const PosixRights owningGroup = list.effective(list.owningGroup);
    PosixRights groupsAndOthers = owningGroup | list.others;
    for (const auto& named : list.groups)
        groupsAndOthers = groupsAndOthers | list.counting(named.rights);

    for (const auto& user : list.users)
        addNamed(result.users, CBPosixUser{user.id}, list.counting(user.rights),
                 user.id == owner ? PosixNothing : groupsAndOthers, applies);
    // Several groups add up, so one group has only the others after it.
    for (const auto& named : list.groups)
        addNamed(result.groups, CBPosixGroup{named.id}, list.counting(named.rights),
                 named.id == group ? PosixNothing : list.others, applies);

    // The base is shown also where it grants nothing: a list without it would mean another.
    add(result.owner, CBCreator{false}, list.owner, groupsAndOthers, applies);
    add(result.owningGroup, CBCreator{true}, owningGroup, list.others, applies);
    add(result.others, CBEveryone{}, list.others, PosixNothing, applies);
    return result;
}

/// Moves what both `defaults` and `entries` say into one entry that says both.
void mergeDefaults(std::vector<ShownRights>& entries, std::vector<ShownRights>& defaults) {
    for (auto& entry : entries) {
        const auto same =
            std::find_if(defaults.begin(), defaults.end(), [&](const ShownRights& other) {
                return other.who == entry.who && other.deny == entry.deny &&
                       other.rights == entry.rights;
            });
        if (same != defaults.end()) {
            entry.appliesToChildren = true;
            defaults.erase(same);
        }
    }
}

ShownRights flatRights(const CBPosixIdentity& who, PosixRights rights) {
    ShownRights entry;
    entry.who = who;
    entry.rights = rights;
    entry.flat = true;
    return entry;
}

void append(std::vector<ShownRights>& to, const std::vector<ShownRights>& from) {
    to.insert(to.end(), from.begin(), from.end());
}

std::shared_ptr<MVTreeNode> makeNode(std::string_view name, std::uint32_t permission, bool on) {
    return MVTreeNode::treeNodeWithRepresentedObject(MVAclPermission::initWithName(
        name, static_cast<std::int32_t>(permission), on ? MVStateOn : MVStateOff));
}

std::vector<std::shared_ptr<MVTreeNode>> flatTree(PosixRights rights) {
    return {makeNode("Read", MVAclMarkerPermissions, (rights & PosixRead) != PosixNothing),
            makeNode("Write", MVAclMarkerPermissions, (rights & PosixWrite) != PosixNothing),
            makeNode(translatable("ACL", "Execute"), MVAclMarkerPermissions,
                     (rights & PosixExecute) != PosixNothing)};
}

}  // namespace

std::vector<std::shared_ptr<MVTreeNode>> permissionTree(std::uint32_t boxes, bool isDirectory) {
    std::vector<std::shared_ptr<MVTreeNode>> tree;
    const std::uint32_t kind = isDirectory ? ACL_KIND_FOLDERS : ACL_KIND_FILES;
    for (const acl_perm_group* group = acl_perms; group->name; ++group) {
        auto node = makeNode(group->name, MVAclMarkerPermissions, false);
        for (const acl_perm_entry* row = group->perms; row->name; ++row) {
            if (row->kinds & kind)
                node->mutableChildNodes().append(
                    makeNode(row->name, row->perm, (boxes & row->perm) != 0));
        }
        MVAclEntry::resolveStateForPermissionNode(node.get());
        tree.push_back(std::move(node));
    }
    return tree;
}

std::shared_ptr<MVTreeNode> appliesToNode(std::uint32_t on) {
    auto node = makeNode("Applies To", MVAclMarkerAppliesTo, false);
    for (const acl_perm_entry* row = acl_flags; row->name; ++row)
        node->mutableChildNodes().append(makeNode(row->name, row->perm, (on & row->perm) != 0));
    MVAclEntry::resolveStateForPermissionNode(node.get());
    return node;
}

namespace {

std::vector<std::shared_ptr<MVTreeNode>> fullTree(const ShownRights& entry, std::uint32_t boxes,
                                                  bool isDirectory) {
    auto tree = permissionTree(boxes, isDirectory);
    if (isDirectory) {
        std::uint32_t on = entry.appliesToItem ? ACL_ENTRY_ONLY_INHERIT : 0;
        if (entry.appliesToChildren)
            on |= ACL_ENTRY_FILE_INHERIT | ACL_ENTRY_DIRECTORY_INHERIT | ACL_ENTRY_LIMIT_INHERIT;
        tree.push_back(appliesToNode(on));
    }
    return tree;
}

}  // namespace

std::vector<ShownRights> shownRightsOfPosixAcl(const PosixAcl& acl) {
    TreeEntries access = treeEntriesOf(acl.access, {}, acl.owner, acl.group);
    TreeEntries defaults;
    if (acl.defaults) {
        ShownRights applies;
        applies.appliesToItem = false;
        applies.appliesToChildren = true;
        defaults = treeEntriesOf(*acl.defaults, applies);
        mergeDefaults(access.users, defaults.users);
        mergeDefaults(access.groups, defaults.groups);
    }

    std::vector<ShownRights> shown;
    shown.push_back(flatRights(CBPosixUser{acl.owner}, acl.access.owner));
    append(shown, access.users);
    // A deny for a group bears on the users in it: users come before all groups.
    append(shown, defaults.users);
    shown.push_back(
        flatRights(CBPosixGroup{acl.group}, acl.access.effective(acl.access.owningGroup)));
    append(shown, access.groups);
    shown.push_back(flatRights(CBEveryone{}, acl.access.others));
    for (const auto* stretch :
         {&defaults.owner, &defaults.owningGroup, &defaults.groups, &defaults.others})
        append(shown, *stretch);
    return shown;
}

std::uint32_t boxesOfRights(PosixRights rights, bool deny, bool isOwner, bool isDirectory) {
    std::uint32_t boxes = 0;
    if ((rights & PosixRead) != PosixNothing)
        boxes |= ACL_READ_DATA | ACL_READ_EXTATTRIBUTES;
    if ((rights & PosixWrite) != PosixNothing) {
        boxes |= ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_WRITE_EXTATTRIBUTES;
        if (isDirectory)
            boxes |= ACL_DELETE_CHILD;
    }
    if ((rights & PosixExecute) != PosixNothing)
        boxes |= ACL_SEARCH;
    if (!deny) {
        // No list can take these rights away.
        boxes |= ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
        if (isOwner)
            boxes |= ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY;
    }
    return boxes;
}

std::vector<std::shared_ptr<MVAclEntry>> entriesOfPosixAcl(const PosixAcl& acl) {
    std::vector<std::shared_ptr<MVAclEntry>> entries;
    for (const auto& shown : shownRightsOfPosixAcl(acl)) {
        const bool isOwner = shown.who == CBPosixIdentity{CBCreator{false}};
        auto tree =
            shown.flat
                ? flatTree(shown.rights)
                : fullTree(shown, boxesOfRights(shown.rights, shown.deny, isOwner, acl.isDirectory),
                           acl.isDirectory);
        entries.push_back(MVAclEntry::initWithUuid(uuidOfPosixIdentity(shown.who),
                                                   shown.deny ? MVAclTagDeny : MVAclTagAllow,
                                                   std::move(tree), false));
    }
    return entries;
}

bool isShownWhole(const PosixAcl& acl) {
    const auto isWhole = [](const PosixList& list) {
        PosixList shown = list;
        shown.owningGroup = list.effective(list.owningGroup);
        for (auto* named : {&shown.users, &shown.groups}) {
            for (auto& entry : *named)
                entry.rights = list.counting(entry.rights);
        }
        return withMask(std::move(shown), nullptr) == list;
    };
    return isWhole(acl.access) && (!acl.defaults || isWhole(*acl.defaults));
}

MVAclOrigin::StoredLists storedListsOf(const PosixAcl& acl) {
    const auto stored = [](const PosixList& list) {
        // Of more names there is no stored list; who is to store them says so.
        return list.users.size() + list.groups.size() > maxPosixNames ? std::vector<std::uint8_t>()
                                                                      : attributeOfPosixList(list);
    };
    return {stored(acl.access), acl.defaults ? stored(*acl.defaults) : std::vector<std::uint8_t>()};
}

std::optional<PosixOwnership> ownershipToldBy(
    const std::vector<std::shared_ptr<MVAclEntry>>& entries) {
    std::optional<std::uint32_t> owner;
    std::optional<std::uint32_t> group;
    for (const auto& entry : entries) {
        if (entry->isAcl() || !entry->uuid())
            continue;
        const auto who = posixIdentityOfUUID(*entry->uuid());
        if (!who)
            continue;
        if (const auto* user = std::get_if<CBPosixUser>(&*who))
            owner = user->uid;
        else if (const auto* owningGroup = std::get_if<CBPosixGroup>(&*who))
            group = owningGroup->gid;
    }
    return owner && group ? std::optional(PosixOwnership{*owner, *group}) : std::nullopt;
}

}  // namespace morvane
