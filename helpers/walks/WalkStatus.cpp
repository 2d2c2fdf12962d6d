// SPDX-License-Identifier: MIT
#include "WalkStatus.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace morvane {

ItemId idOf(const struct statx& status) {
    // Filled in: errno is not 0 after a failure.
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
    return {std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor, status.stx_ino,
            status.stx_mnt_id, status.stx_btime.tv_sec, status.stx_btime.tv_nsec};
}

int statusAt(int folder, const char* name, struct statx& status, bool askFileSystem) {
    constexpr unsigned wanted =
        STATX_TYPE | STATX_SIZE | STATX_NLINK | STATX_INO | STATX_BTIME | STATX_MNT_ID;
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH |
                      (askFileSystem ? AT_STATX_SYNC_AS_STAT : AT_STATX_DONT_SYNC);
    if (::statx(folder, name, flags, wanted, &status) == 0)
        return 0;
    const int code = errno;
    // A user's mount may refuse even root a look at it.
    const bool isMount =
        *name && code != ENOENT && !openBelow(folder, name, O_PATH) && errno == EXDEV;
    return isMount ? EXDEV : code;
}

bool knowsSizes(int folder) {
    constexpr long xfs = 0x58465342;
    constexpr long zfs = 0x2fc12fc1;
    struct statfs system {};
    if (fstatfs(folder, &system) != 0)
        return false;
    switch (system.f_type) {
        case EXT4_SUPER_MAGIC:
        case xfs:
        case zfs:
        case BTRFS_SUPER_MAGIC:
        case TMPFS_MAGIC:
        case OVERLAYFS_SUPER_MAGIC:
            return true;
        default:
            return false;
    }
}

FileDescriptor openBelow(int folder, const char* name, int flags) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    return FileDescriptor(static_cast<int>(syscall(SYS_openat2, folder, name, &how, sizeof how)));
}

}  // namespace morvane
