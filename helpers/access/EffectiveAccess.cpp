// SPDX-License-Identifier: MIT
#include "EffectiveAccess.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Nfs4Access.h"
#include "Nfs4Names.h"
#include "PosixAccess.h"
#include "PosixAclReader.h"
#include "StoredAcl.h"

// This comes after the system's headers, which use some of these names.
#include <MorvaneOperation/acl_perms.h>

namespace morvane {

namespace {

/// The same folder seen through the same mount.
bool isSame(const AclItem& a, const AclItem& b) {
    struct statx first {};
    struct statx second {};
    constexpr unsigned wanted = STATX_INO | STATX_MNT_ID;
    return statx(AT_FDCWD, a.path().c_str(), 0, wanted, &first) == 0 &&
           statx(AT_FDCWD, b.path().c_str(), 0, wanted, &second) == 0 &&
           first.stx_ino == second.stx_ino && first.stx_mnt_id == second.stx_mnt_id &&
           first.stx_dev_major == second.stx_dev_major &&
           first.stx_dev_minor == second.stx_dev_minor;
}

bool maySearch(const AclItem& folder, const CBPosixIdentity& who) {
    const auto read = readStoredAcl(folder);
    if (!read)
        return false;
    if (const auto* list = std::get_if<PosixAcl>(&*read))
        return grants(*list, who, PosixExecute);
    const auto& list = std::get<Nfs4Item>(*read);
    return (boxesByNfs4Acl(list, who, systemNfs4Names()) & ACL_SEARCH) != 0;
}

/// Whether `who` may search the folder and all that are above it.
bool mayReach(const AclItem& folder, const CBPosixIdentity& who) {
    if (isRoot(who))
        return true;
    std::optional<AclItem> held;
    for (const auto* at = &folder; maySearch(*at, who); at = &*held) {
        FileDescriptor opened(open((at->path() + "/..").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!opened)
            return false;
        AclItem above(std::move(opened));
        // The topmost folder is its own parent.
        if (isSame(*at, above))
            return true;
        held = std::move(above);
    }
    return false;
}

/// Whether `who` may take the item out of the folder that it is in.
bool mayDelete(const AclItem& folder, const PosixAcl& acl, const CBPosixIdentity& who) {
    const auto list = readPosixAcl(folder);
    struct stat status {};
    if (!list || stat(folder.path().c_str(), &status) != 0)
        return false;
    if (!grants(*list, who, PosixWrite | PosixExecute))
        return false;
    return (status.st_mode & S_ISVTX) == 0 || isRoot(who) || owns(who, acl.owner) ||
           owns(who, status.st_uid);
}

bool isMountRoot(const AclItem& item) {
    struct statx status {};
    return statx(AT_FDCWD, item.path().c_str(), 0, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

/// Whether the item is of a kind whose attributes users may set, given the right to write it.
bool takesAttributes(const AclItem& item, bool isOwner) {
    struct stat status {};
    if (stat(item.path().c_str(), &status) != 0)
        return false;
    return S_ISREG(status.st_mode) ||
           (S_ISDIR(status.st_mode) && ((status.st_mode & S_ISVTX) == 0 || isOwner));
}

/// The folder that the item is in, that of `/` being itself; empty if the item is in none any more.
std::optional<AclItem> folderOf(const AclItem& item) {
    char target[PATH_MAX];
    const auto size = readlink(item.path().c_str(), target, sizeof target);
    if (size <= 0 || static_cast<std::size_t>(size) == sizeof target || target[0] != '/')
        return {};
    const std::string path(target, static_cast<std::size_t>(size));
    const auto slash = path.rfind('/');
    // The kernel reports a path without links, so a link on it was made since.
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const auto above = path.substr(0, std::max<std::size_t>(slash, 1));
    FileDescriptor folder(
        static_cast<int>(syscall(SYS_openat2, AT_FDCWD, above.c_str(), &how, sizeof how)));
    if (!folder)
        return {};
    const auto name = path.size() == 1 ? std::string(".") : path.substr(slash + 1);
    struct stat held {};
    struct stat found {};
    if (stat(item.path().c_str(), &held) != 0 ||
        fstatat(folder.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0 ||
        held.st_dev != found.st_dev || held.st_ino != found.st_ino)
        return {};
    return AclItem(std::move(folder));
}

/// `boxes` without what the file system that `item` is on, or the item's flags, give to nobody.
std::uint32_t withinMount(const AclItem& item, std::uint32_t boxes, bool isDirectory) {
    constexpr std::uint32_t looking = ACL_READ_DATA | ACL_SEARCH | ACL_READ_ATTRIBUTES |
                                      ACL_READ_EXTATTRIBUTES | ACL_READ_SECURITY;
    struct statx flags {};
    struct statvfs system {};
    if (statx(AT_FDCWD, item.path().c_str(), 0, STATX_TYPE, &flags) == 0) {
        if ((flags.stx_attributes & STATX_ATTR_IMMUTABLE) != 0)
            boxes &= looking;
        if ((flags.stx_attributes & STATX_ATTR_APPEND) != 0)
            boxes &= looking | ACL_APPEND_DATA | (isDirectory ? ACL_WRITE_DATA : 0);
    }
    if (statvfs(item.path().c_str(), &system) == 0) {
        if ((system.f_flag & ST_RDONLY) != 0)
            boxes &= looking;
        if ((system.f_flag & ST_NOEXEC) != 0 && !isDirectory)
            boxes &= ~static_cast<std::uint32_t>(ACL_SEARCH);
    }
    return boxes;
}

/// `boxes` without what the folders above the item keep `who` from. `folder` is the item's, as
/// folderOf() tells it.
std::uint32_t withinFolders(const AclItem& item, const std::optional<AclItem>& folder,
                            const CBPosixIdentity& who, std::uint32_t boxes) {
    if (!folder || !mayReach(*folder, who))
        return 0;
    if (isMountRoot(item) || isSame(item, *folder) ||
        withinMount(*folder, ACL_DELETE_CHILD, true) == 0)
        boxes &= ~static_cast<std::uint32_t>(ACL_DELETE);
    return boxes;
}

/// What the server of the mount answers to root, who asks it for the whole of each right.
std::uint32_t boxesOfRoot(const AclItem& item, const Nfs4Item& list, std::uint32_t byList) {
    const bool isDirectory = list.target.isDirectory;
    const auto may = [&](int right) {
        return faccessat(AT_FDCWD, item.path().c_str(), right, AT_EACCESS) == 0;
    };
    constexpr std::uint32_t asked = ACL_READ_DATA | ACL_SEARCH | ACL_WRITE_DATA | ACL_APPEND_DATA;
    std::uint32_t boxes = 0;
    if (may(R_OK))
        boxes |= ACL_READ_DATA | ACL_READ_EXTATTRIBUTES;
    if (may(X_OK))
        boxes |= ACL_SEARCH;
    if (may(isDirectory ? W_OK | X_OK : W_OK))
        boxes |= ACL_WRITE_DATA | ACL_APPEND_DATA | ACL_WRITE_EXTATTRIBUTES |
                 (isDirectory ? ACL_DELETE_CHILD : 0);
    // If root may do more than the list says, the server treats root as root, who may do
    // everything.
    if ((boxes & asked & ~byList) != 0)
        return boxes | byList | ACL_READ_ATTRIBUTES | ACL_READ_SECURITY | ACL_WRITE_ATTRIBUTES |
               ACL_WRITE_SECURITY | ACL_CHANGE_OWNER | ACL_DELETE;
    return boxes | (byList & ~asked);
}

}  // namespace

std::uint32_t effectiveBoxes(const AclItem& item, const PosixAcl& acl, const CBPosixIdentity& who) {
    const auto rights = effectiveRights(acl, who);
    const auto has = [&](PosixRights right) { return (rights & right) != PosixNothing; };
    const auto when = [](bool condition, std::uint32_t boxes) { return condition ? boxes : 0; };
    const bool isOwner = isRoot(who) || owns(who, acl.owner);

    std::uint32_t boxes = ACL_READ_ATTRIBUTES | ACL_READ_SECURITY;
    boxes |= when(has(PosixRead), ACL_READ_DATA | ACL_READ_EXTATTRIBUTES);
    boxes |= when(has(PosixExecute), ACL_SEARCH);
    boxes |= when(has(PosixWrite) && takesAttributes(item, isOwner), ACL_WRITE_EXTATTRIBUTES);
    // Whoever may write and enter a folder can create an item in it.
    boxes |= when(grants(acl, who, acl.isDirectory ? PosixWrite | PosixExecute : PosixWrite),
                  ACL_WRITE_DATA | ACL_APPEND_DATA | when(acl.isDirectory, ACL_DELETE_CHILD));
    boxes |= when(isOwner, ACL_WRITE_ATTRIBUTES | ACL_WRITE_SECURITY);
    boxes |= when(isRoot(who), ACL_CHANGE_OWNER);
    const auto folder = folderOf(item);
    boxes |= when(folder && mayDelete(*folder, acl, who), ACL_DELETE);

    return withinMount(item, withinFolders(item, folder, who, boxes), acl.isDirectory);
}

std::uint32_t effectiveBoxes(const AclItem& item, const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names) {
    auto boxes = boxesByNfs4Acl(list, who, names);
    const auto folder = folderOf(item);
    if (folder) {
        const auto above = readNfs4Item(*folder);
        if (above && (boxesByNfs4Acl(*above, who, names) & ACL_DELETE_CHILD) != 0)
            boxes |= ACL_DELETE;
    }
    if (isServersRoot(list, who) && geteuid() == 0)
        boxes = boxesOfRoot(item, list, boxes);
    return withinMount(item, withinFolders(item, folder, who, boxes), list.target.isDirectory);
}

}  // namespace morvane
