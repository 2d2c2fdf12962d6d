// SPDX-License-Identifier: MIT
#include "ItemOwner.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace morvane {

int changeMode(const OpenItem& item, mode_t mode) {
    const int result =
        item.path.empty() ? fchmod(item.descriptor, mode) : chmod(item.path.c_str(), mode);
    return result == 0 ? 0 : errno;
}

int changeOwner(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                std::uint32_t group) {
    if (fchownat(item.descriptor, "", owner, group, AT_EMPTY_PATH) != 0)
        return errno;
    constexpr mode_t runsAsOther = S_ISUID | S_ISGID;
    // The bits are read only now, as the former owner could set them until now.
    struct stat now {};
    int code = fstatat(item.descriptor, "", &now, AT_EMPTY_PATH) == 0 ? 0 : errno;
    if (code == 0 && !S_ISDIR(now.st_mode) && (now.st_mode & runsAsOther) != 0)
        code = changeMode(item, now.st_mode & 07777 & ~runsAsOther);
    if (code != 0)
        giveBack(item, status);
    return code;
}

void giveBack(const OpenItem& item, const struct stat& status) {
    static_cast<void>(fchownat(item.descriptor, "", status.st_uid, status.st_gid, AT_EMPTY_PATH));
}

}  // namespace morvane
