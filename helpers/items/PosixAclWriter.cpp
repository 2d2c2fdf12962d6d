// SPDX-License-Identifier: MIT
#include "PosixAclWriter.h"

#include <MorvaneOperation/platform/foundation/Result.h>
#include <acl/libacl.h>
#include <linux/magic.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "AclHandle.h"

namespace morvane {

namespace {

/// Returns 0 or an errno value. `acl` may move, as the list grows.
int add(acl_t& acl, acl_tag_t tag, PosixRights rights, const id_t* id = nullptr) {
    acl_entry_t entry = nullptr;
    acl_permset_t permissions = nullptr;
    if (acl_create_entry(&acl, &entry) != 0 || acl_set_tag_type(entry, tag) != 0 ||
        (id && acl_set_qualifier(entry, id) != 0) || acl_get_permset(entry, &permissions) != 0)
        return errno;
    const auto grant = [&](PosixRights right, acl_perm_t permission) {
        return (rights & right) == PosixNothing || acl_add_perm(permissions, permission) == 0;
    };
    const bool granted = grant(PosixRead, ACL_READ) && grant(PosixWrite, ACL_WRITE) &&
                         grant(PosixExecute, ACL_EXECUTE);
    return granted ? 0 : errno;
}

Result<AclHandle, int> aclOf(const PosixList& list) {
    acl_t acl = acl_init(static_cast<int>(4 + list.users.size() + list.groups.size()));
    if (!acl)
        return Failure{errno};
    int code = 0;
    const auto append = [&](acl_tag_t tag, PosixRights rights, const id_t* id = nullptr) {
        if (code == 0)
            code = add(acl, tag, rights, id);
    };
    append(ACL_USER_OBJ, list.owner);
    for (const auto& user : list.users)
        append(ACL_USER, user.rights, &user.id);
    append(ACL_GROUP_OBJ, list.owningGroup);
    for (const auto& group : list.groups)
        append(ACL_GROUP, group.rights, &group.id);
    if (list.mask)
        append(ACL_MASK, *list.mask);
    append(ACL_OTHER, list.others);
    AclHandle handle(acl);
    if (code != 0)
        return Failure{code};
    return handle;
}

bool isModeOnly(const PosixList& list) {
    return !list.mask && list.users.empty() && list.groups.empty();
}

mode_t modeOf(const PosixList& list) {
    return static_cast<mode_t>(list.owner << 6 | list.owningGroup << 3 | list.others);
}

int writeAccess(const std::string& path, const PosixList& list) {
    const auto acl = aclOf(list);
    if (!acl)
        return acl.error();
    if (acl_set_file(path.c_str(), ACL_TYPE_ACCESS, acl->get()) == 0)
        return 0;
    if (errno != EOPNOTSUPP || !isModeOnly(list))
        return errno;
    // A file system without lists still has the mode.
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return errno;
    return chmod(path.c_str(), (status.st_mode & 07000) | modeOf(list)) == 0 ? 0 : errno;
}

int writeDefaults(const std::string& path, const std::optional<PosixList>& list) {
    if (!list)
        return acl_delete_def_file(path.c_str()) == 0 ? 0 : errno;
    const auto acl = aclOf(*list);
    if (!acl)
        return acl.error();
    return acl_set_file(path.c_str(), ACL_TYPE_DEFAULT, acl->get()) == 0 ? 0 : errno;
}

/// Whether the system would take setgid from the item: from whoever is neither in its group nor
/// privileged.
bool wouldLoseSetgid(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & S_ISGID) == 0 || geteuid() == 0 ||
        getegid() == status.st_gid)
        return false;
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return std::find(groups.begin(), groups.end(), status.st_gid) == groups.end();
}

/// How much of a list that file system holds; empty if that is not known.
Phrase limitOf(const struct statfs& system) {
    switch (system.f_type) {
        case EXT4_SUPER_MAGIC:
            return phrase(
                "All extended attributes of an item have to fit into one block of %1 "
                "bytes, where each of them takes 8.",
                system.f_bsize);
        case OVERLAYFS_SUPER_MAGIC:
            return phrase(
                "The file system below the overlay decides; on ext4, the usual one, all "
                "extended attributes of an item have to fit into one block, usually of "
                "4096 bytes, where each of them takes 8.");
        case BTRFS_SUPER_MAGIC:
            return phrase(
                "It has to fit into one node of the file system's tree, usually of 16384 "
                "bytes, where each of them takes 8.");
        case XFS_SUPER_MAGIC:
            return phrase("XFS holds at most 5461 entries in one list.");
        default:
            return {};
    }
}

}  // namespace

std::size_t namesIn(const PosixAcl& acl) {
    const auto count = [](const PosixList& list) { return list.users.size() + list.groups.size(); };
    return count(acl.access) + (acl.defaults ? count(*acl.defaults) : 0);
}

Phrase whyPosixAclIsRefused(int code, const std::string& path, std::size_t names) {
    struct statfs system {};
    if ((code != ENOSPC && code != E2BIG) || statfs(path.c_str(), &system) != 0 ||
        (code == ENOSPC && system.f_bavail == 0))
        return {};
    const auto why = code == ENOSPC
                         ? phrase(
                               "The list is too long for this file system, whose disk is not "
                               "full: it would name %1 users and groups.",
                               names)
                         : phrase(
                               "The list is too long for this file system: it would name %1 users "
                               "and groups.",
                               names);
    const auto limit = limitOf(system);
    return limit.empty() ? why : Phrase::list(" ", {why, limit});
}

int writePosixAcl(const std::string& path, const PosixAcl& old, const PosixAcl& acl) {
    if (acl.access != old.access && wouldLoseSetgid(path))
        return EPERM;
    if (acl.defaults != old.defaults) {
        if (const int code = writeDefaults(path, acl.defaults))
            return code;
    }
    if (acl.access == old.access)
        return 0;
    const int code = writeAccess(path, acl.access);
    if (code != 0 && acl.defaults != old.defaults)
        writeDefaults(path, old.defaults);
    return code;
}

}  // namespace morvane
