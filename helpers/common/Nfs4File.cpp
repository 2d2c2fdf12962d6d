#include "Nfs4File.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>

#include "EffectiveAccess.h"

// After the system's headers, which use some of these names.
#include <MorvaneOperation/acl_perms.h>

namespace morvane {

namespace {

/// The kernel gives no attribute that is longer.
constexpr std::size_t maxAttributeSize = 65536;
/// Enough for most lists. The kernel clears as much memory as it is asked for.
constexpr std::size_t usualAttributeSize = 1024;

/// Whether `entry` speaks of `who`, who is in `groups`.
bool bearsOn(const Nfs4Entry& entry, const Nfs4Item& list, const CBPosixIdentity& who,
             const std::vector<std::uint32_t>& groups, const Nfs4Names& names) {
    const auto identity = identityOfNfs4Entry(entry, list.target, names);
    if (!identity)
        return false;
    if (*identity == who || std::holds_alternative<CBEveryone>(*identity))
        return true;
    const auto* group = std::get_if<CBPosixGroup>(&*identity);
    return group && std::find(groups.begin(), groups.end(), group->gid) != groups.end();
}

}  // namespace

std::variant<std::vector<std::uint8_t>, int> readAttribute(const AclItem& item, const char* name) {
    std::vector<std::uint8_t> bytes(usualAttributeSize);
    auto size = getxattr(item.path().c_str(), name, bytes.data(), bytes.size());
    if (size < 0 && errno == ERANGE) {
        bytes.resize(maxAttributeSize);
        size = getxattr(item.path().c_str(), name, bytes.data(), bytes.size());
    }
    if (size < 0)
        return errno;
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

std::variant<Nfs4Item, int> readNfs4Item(const AclItem& item) {
    struct stat status {};
    if (stat(item.path().c_str(), &status) != 0)
        return errno;
    for (const auto form : {Nfs4Form::numbered, Nfs4Form::named}) {
        const auto read = readAttribute(item, attributeOfForm(form));
        if (const auto* code = std::get_if<int>(&read)) {
            if (*code == ENODATA || *code == EOPNOTSUPP)
                continue;
            return *code;
        }
        auto acl = decodeNfs4Acl(std::get<std::vector<std::uint8_t>>(read), form);
        if (!acl)
            return EBADMSG;
        return Nfs4Item{
            {status.st_uid, status.st_gid, S_ISDIR(status.st_mode)}, form, std::move(*acl)};
    }
    return ENODATA;
}

int writeNfs4Acl(const AclItem& item, const Nfs4Item& old, const Nfs4Acl& acl) {
    if (acl == old.acl)
        return 0;
    const auto bytes = encodeNfs4Acl(acl, old.form);
    if (!bytes)
        return E2BIG;
    // The attribute is there: if it is no longer, this is another kind of file system by now.
    return setxattr(item.path().c_str(), attributeOfForm(old.form), bytes->data(), bytes->size(),
                    XATTR_REPLACE) == 0
               ? 0
               : errno;
}

std::uint32_t boxesByNfs4Acl(const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names) {
    const auto* user = std::get_if<CBPosixUser>(&who);
    const auto groups =
        user ? CBIdentityAuthority::defaultIdentityAuthority().database().groupsOfUser(user->uid)
             : std::vector<std::uint32_t>{};
    std::uint32_t allowed = 0;
    std::uint32_t denied = 0;
    for (const auto& entry : list.acl.entries) {
        // On a file the flag means nothing.
        const bool isForOthers = list.target.isDirectory && (entry.flags & Nfs4InheritOnly) != 0;
        if (isForOthers || entry.type > Nfs4Deny || !bearsOn(entry, list, who, groups, names))
            continue;
        auto& decision = entry.type == Nfs4Deny ? denied : allowed;
        decision |= entry.mask & ~(allowed | denied);
    }
    return boxesOfNfs4Mask(allowed);
}

std::uint32_t effectiveBoxes(const AclItem& item, const Nfs4Item& list, const CBPosixIdentity& who,
                             const Nfs4Names& names) {
    auto boxes = boxesByNfs4Acl(list, who, names);
    const auto folder = folderOf(item);
    if (folder) {
        const auto parent = readNfs4Item(*folder);
        const auto* above = std::get_if<Nfs4Item>(&parent);
        if (above && (boxesByNfs4Acl(*above, who, names) & ACL_DELETE_CHILD) != 0)
            boxes |= ACL_DELETE;
    }
    return withinMount(item, withinFolders(item, folder, who, boxes), list.target.isDirectory);
}

}  // namespace morvane
