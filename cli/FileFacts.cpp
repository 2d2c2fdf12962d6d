// SPDX-License-Identifier: MIT
#include "FileFacts.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <map>
#include <string_view>

namespace morvane {

namespace {

/// A link has no list, and asking for one would follow the link.
bool hasListBesideMode(const std::string& path, std::uint32_t mode) {
    if (S_ISLNK(mode))
        return false;
    for (const char* const name :
         {"system.posix_acl_access", "system.posix_acl_default", "system.nfs4_acl"}) {
        if (lgetxattr(path.c_str(), name, nullptr, 0) > 0)
            return true;
    }
    return false;
}

std::string targetOf(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    const auto length = readlink(path.c_str(), target.data(), target.size());
    return length < 0 ? std::string()
                      : std::string(target.data(), static_cast<std::size_t>(length));
}

}  // namespace

std::optional<FileFacts> glimpseOfFile(const std::string& path) {
    struct statx found {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_BASIC_STATS | STATX_MNT_ID, &found) != 0)
        return std::nullopt;
    FileFacts facts;
    facts.mode = found.stx_mode;
    facts.owner = found.stx_uid;
    facts.group = found.stx_gid;
    facts.size = static_cast<std::int64_t>(found.stx_size);
    facts.modified = found.stx_mtime.tv_sec;
    facts.mount = (found.stx_mask & STATX_MNT_ID) != 0 ? found.stx_mnt_id : 0;
    return facts;
}

std::optional<FileFacts> factsOfFile(const std::string& path) {
    auto facts = glimpseOfFile(path);
    if (!facts)
        return std::nullopt;
    facts->hasList = hasListBesideMode(path, facts->mode);
    if (S_ISLNK(facts->mode))
        facts->target = targetOf(path);
    return facts;
}

std::optional<FileFacts> factsOfNamed(const std::string& path, const FactsSource& facts) {
    auto own = facts(path);
    if (!own || own->kind() != std::string_view("link"))
        return own;
    // A path that ends with a slash is found only if it leads to a folder, which need not be
    // readable.
    const auto folder = facts(path + '/');
    return folder ? folder : own;
}

std::string identityOfFile(const std::string& path) {
    struct statx found {};
    if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
              STATX_TYPE | STATX_INO | STATX_BTIME, &found) != 0 ||
        S_ISLNK(found.stx_mode))
        return {};
    auto identity = std::to_string(found.stx_ino) + ' ';
    if ((found.stx_mask & STATX_BTIME) != 0)
        return identity + std::to_string(found.stx_btime.tv_sec) + '.' +
               std::to_string(found.stx_btime.tv_nsec);
    return identity + std::to_string(found.stx_dev_major) + ':' +
           std::to_string(found.stx_dev_minor);
}

std::optional<std::string> nameOfOwner(std::uint32_t id, bool isGroup) {
    static std::array<std::map<std::uint32_t, std::optional<std::string>>, 2> names;
    auto& known = names[isGroup ? 1 : 0];
    if (const auto found = known.find(id); found != known.end())
        return found->second;
    auto& database = CBIdentityAuthority::defaultIdentityAuthority().database();
    const auto record = isGroup ? database.groupWithId(id) : database.userWithId(id);
    return known.emplace(id, record ? std::optional(record->name) : std::nullopt).first->second;
}

bool FileFacts::isFolder() const {
    return S_ISDIR(mode);
}

std::int64_t FileFacts::ownSize() const {
    return S_ISREG(mode) ? size : 0;
}

const char* FileFacts::kind() const {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "folder";
        case S_IFLNK:
            return "link";
        case S_IFIFO:
            return "fifo";
        case S_IFSOCK:
            return "socket";
        case S_IFCHR:
            return "character device";
        case S_IFBLK:
            return "block device";
        default:
            return "file";
    }
}

std::string FileFacts::flagsText() const {
    const auto letter = [&](std::uint32_t bit, char set) { return (mode & bit) != 0 ? set : '-'; };
    const std::string text{letter(S_ISUID, 's'), letter(S_ISGID, 's'), letter(S_ISVTX, 't')};
    return text == "---" ? std::string() : text;
}

std::string FileFacts::modeText() const {
    std::string text;
    switch (mode & S_IFMT) {
        case S_IFDIR:
            text = "d";
            break;
        case S_IFLNK:
            text = "l";
            break;
        case S_IFIFO:
            text = "p";
            break;
        case S_IFSOCK:
            text = "s";
            break;
        case S_IFCHR:
            text = "c";
            break;
        case S_IFBLK:
            text = "b";
            break;
        default:
            text = "-";
            break;
    }
    struct Rights {
        std::uint32_t read, write, execute, special;
        char with, without;  ///< for the special bit, with and without execution
    };
    static constexpr std::array<Rights, 3> all{{{S_IRUSR, S_IWUSR, S_IXUSR, S_ISUID, 's', 'S'},
                                                {S_IRGRP, S_IWGRP, S_IXGRP, S_ISGID, 's', 'S'},
                                                {S_IROTH, S_IWOTH, S_IXOTH, S_ISVTX, 't', 'T'}}};
    for (const auto& rights : all) {
        const bool executes = (mode & rights.execute) != 0;
        text += (mode & rights.read) != 0 ? 'r' : '-';
        text += (mode & rights.write) != 0 ? 'w' : '-';
        if ((mode & rights.special) != 0)
            text += executes ? rights.with : rights.without;
        else
            text += executes ? 'x' : '-';
    }
    return hasList ? text + '+' : text;
}

}  // namespace morvane
