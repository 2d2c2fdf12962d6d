// SPDX-License-Identifier: MIT
#include "PosixInheritance.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "ItemOwner.h"
#include "PosixAclReader.h"
#include "PosixAclWriter.h"

namespace morvane {
namespace {

struct ItemValues {
    std::vector<std::uint8_t> access;
    /// The bits of the mode that an item with the list has.
    mode_t mode = 0;
    /// Whether these are the whole list, which has neither names nor a mask.
    bool isMode = false;
    /// Returns an empty value if there is none.
    std::vector<std::uint8_t> defaults;
    /// The users and groups that both lists name.
    std::size_t names = 0;
};

constexpr const char* accessName = "system.posix_acl_access";
constexpr const char* defaultName = "system.posix_acl_default";
using Bytes = std::vector<std::uint8_t>;

/// 0 or the errno value; no bytes if there is no such list.
int read(const OpenItem& item, const char* name, Bytes& bytes) {
    const auto readInto = [&](std::span<std::uint8_t> room) {
        return item.path.empty() ? fgetxattr(item.descriptor, name, room.data(), room.size())
                                 : getxattr(item.path.c_str(), name, room.data(), room.size());
    };
    // The kernel makes and clears room for as much as it is asked for. So would each thread, at its
    // start, for as much as it kept here.
    constexpr std::size_t usual = 1024;
    constexpr std::size_t longest = 65536;
    std::array<std::uint8_t, usual> buffer;
    auto size = readInto(buffer);
    if (size >= 0) {
        bytes.assign(buffer.begin(), buffer.begin() + size);
        return 0;
    }
    if (errno == ERANGE) {
        bytes.resize(longest);
        size = readInto(bytes);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        if (size >= 0)
            return 0;
    }
    return errno == ENODATA ? 0 : errno;
}

int write(const OpenItem& item, const char* name, const Bytes& bytes) {
    int result = 0;
    if (bytes.empty())
        result = item.path.empty() ? fremovexattr(item.descriptor, name)
                                   : removexattr(item.path.c_str(), name);
    else
        result = item.path.empty()
                     ? fsetxattr(item.descriptor, name, bytes.data(), bytes.size(), 0)
                     : setxattr(item.path.c_str(), name, bytes.data(), bytes.size(), 0);
    return result == 0 ? 0 : errno;
}

/// Whether this process may leave setgid on an item of the group.
bool keepsSetgid(gid_t group) {
    if (geteuid() == 0 || getegid() == group)
        return true;
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    groups.resize(static_cast<std::size_t>(std::max(count, 0)));
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

/// Whether the item has the list already.
bool hasAccess(const OpenItem& item, mode_t mode, const ItemValues& values) {
    // The mode tells of most items that they do not.
    if ((mode & 0777) != values.mode)
        return false;
    Bytes old;
    return read(item, accessName, old) == 0 && (old.empty() ? values.isMode : old == values.access);
}

int writeAccess(const OpenItem& item, const ItemValues& values) {
    const int code = write(item, accessName, values.access);
    if (code != EOPNOTSUPP || !values.isMode)
        return code;
    // A file system without lists still has the mode. What it has now counts: an item that got
    // another owner has lost setuid and setgid.
    struct stat now {};
    if (fstatat(item.descriptor, "", &now, AT_EMPTY_PATH) != 0)
        return errno;
    return changeMode(item, (now.st_mode & 07000) | values.mode);
}

ItemValues itemValuesOf(const PosixList& access,
                        const std::optional<PosixList>& defaults = std::nullopt) {
    ItemValues values;
    values.access = attributeOfPosixList(access);
    values.mode = static_cast<mode_t>(
        access.owner << 6 | access.mask.value_or(access.owningGroup) << 3 | access.others);
    values.isMode = !access.mask && access.users.empty() && access.groups.empty();
    if (defaults)
        values.defaults = attributeOfPosixList(*defaults);
    values.names = namesIn({0, 0, false, access, defaults});
    return values;
}

int writeItemValues(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                    std::uint32_t group, const ItemValues& values) {
    const bool isFolder = S_ISDIR(status.st_mode);
    Bytes oldDefaults;
    if (isFolder) {
        const int code = read(item, defaultName, oldDefaults);
        if (code != 0 && (code != EOPNOTSUPP || !values.defaults.empty()))
            return code;
    }
    const bool changesOwner = status.st_uid != owner || status.st_gid != group;
    const bool changesDefaults = isFolder && oldDefaults != values.defaults;
    const bool changesAccess = !hasAccess(item, status.st_mode, values);
    if ((changesOwner || changesAccess) && (status.st_mode & S_ISGID) != 0 && !keepsSetgid(group))
        return EPERM;
    if (changesOwner) {
        if (const int code = changeOwner(item, status, owner, group))
            return code;
    }
    int code = changesDefaults ? write(item, defaultName, values.defaults) : 0;
    if (code == 0 && changesAccess) {
        code = writeAccess(item, values);
        if (code != 0 && changesDefaults)
            write(item, defaultName, oldDefaults);
    }
    // Setuid and setgid do not come back: meanwhile the file may have been written to.
    if (code != 0 && changesOwner)
        giveBack(item, status);
    return code;
}

class ListWriter final : public InheritedWriter {
  public:
    explicit ListWriter(const InheritedLists& lists) : owner_(lists.owner), group_(lists.group) {
        for (std::size_t i = 0; i != levels; ++i) {
            const auto& level = lists.levels[i];
            values_[i] = {itemValuesOf(level.file), itemValuesOf(level.executable),
                          itemValuesOf(level.folder, level.folderDefaults)};
        }
    }

    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem& item,
                                                       const struct stat& status,
                                                       std::size_t level) const override {
        const auto& ofLevel = values_[level];
        const auto& values = S_ISDIR(status.st_mode)        ? ofLevel.folder
                             : (status.st_mode & 0111) != 0 ? ofLevel.executable
                                                            : ofLevel.file;
        const int code = writeItemValues(item, status, owner_, group_, values);
        if (code == 0)
            return std::vector<EntryLoss>();
        return Failure{WriteFailure{
            code,
            whyPosixAclIsRefused(code, AclItem::borrowed(item.descriptor).path(), values.names)}};
    }

  private:
    struct Level {
        ItemValues file;
        ItemValues executable;
        ItemValues folder;
    };
    const std::uint32_t owner_;
    const std::uint32_t group_;
    std::array<Level, levels> values_;
};

}  // namespace

std::unique_ptr<const InheritedWriter> inheritedListWriter(const InheritedLists& lists) {
    return std::make_unique<ListWriter>(lists);
}

}  // namespace morvane
