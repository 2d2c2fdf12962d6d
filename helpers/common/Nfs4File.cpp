#include "Nfs4File.h"

#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "EffectiveAccess.h"
#include "Nfs4Names.h"
#include "Nfs4Storing.h"

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

/// Whether an entry had the mark that it is inherited.
bool removeMarks(Nfs4Acl& acl) {
    bool had = false;
    for (auto& entry : acl.entries) {
        had = had || (entry.flags & Nfs4Inherited) != 0;
        entry.flags &= ~static_cast<std::uint32_t>(Nfs4Inherited);
    }
    return had;
}

/// 0 or an errno value.
int store(const AclItem& item, const Nfs4Item& old, const Nfs4Acl& acl) {
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
    // Who may more than the list says is root to the server, too, and may everything.
    if ((boxes & asked & ~byList) != 0)
        return boxes | byList | ACL_READ_ATTRIBUTES | ACL_READ_SECURITY | ACL_WRITE_ATTRIBUTES |
               ACL_WRITE_SECURITY | ACL_CHANGE_OWNER | ACL_DELETE;
    return boxes | (byList & ~asked);
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

int Nfs4Writer::write(const AclItem& item, const Nfs4Item& old, const Nfs4Acl& acl,
                      std::vector<EntryLoss>& losses) const {
    const auto names = systemNfs4Names();
    const auto otherNames = [&](const Nfs4Acl& list) -> std::optional<Nfs4Acl> {
        if (old.form != Nfs4Form::named)
            return std::nullopt;
        return withOtherNames(list, old.acl, old.target, names, systemNfs4Domain());
    };
    auto list = acl;
    if (withoutMark_)
        removeMarks(list);
    if (withOtherNames_)
        list = otherNames(list).value_or(list);
    int code = store(item, old, list);
    // The server says of neither what it does not like.
    if (code == EIO && removeMarks(list)) {
        code = store(item, old, list);
        withoutMark_ = withoutMark_ || code == 0;
    } else if (auto renamed = code == EINVAL ? otherNames(list) : std::nullopt) {
        list = std::move(*renamed);
        code = store(item, old, list);
        if (code == EIO && removeMarks(list))
            code = store(item, old, list);
        withOtherNames_ = withOtherNames_ || code == 0;
    }
    if (code != 0 || list == old.acl)
        return code;
    const auto stored = readNfs4Item(item);
    if (const auto* failure = std::get_if<int>(&stored))
        return *failure == EACCES ? 0 : *failure;  // Its new list may hide it.
    losses = lostInStoring(list, std::get<Nfs4Item>(stored).acl, old.target, names);
    return losses.empty() ? 0 : EREMOTEIO;
}

std::string whyNfs4AclIsRefused(int code, const Nfs4Item& old, const Nfs4Acl& acl) {
    const auto count = std::to_string(acl.entries.size());
    if (acl.entries.size() > maxNfs4Entries)
        return "The list would have " + count + " entries; it can have at most " +
               std::to_string(maxNfs4Entries) + ".";
    const auto bytes = encodeNfs4Acl(acl, old.form);
    if (bytes && bytes->size() > maxAttributeSize)
        return "The list would have " + std::to_string(bytes->size()) +
               " bytes; the system takes at most " + std::to_string(maxAttributeSize) + ".";
    if (old.form != Nfs4Form::named)
        return {};
    switch (code) {
        case EIO:
            return "The server of the network mount has refused the list without a reason. Some "
                   "hold no entry that is inherited by one level only (\"All descendants\" is off, "
                   "a folder's other boxes are on), and some no list of so many entries (" +
                   count + ").";
        case EINVAL:
            return "The server of the network mount does not know somebody whom the list names. "
                   "The domain that it and this system have in common stands in "
                   "/etc/idmapd.conf.";
        case E2BIG:
        case ERANGE:
        case ENOSPC:
        case EFBIG:
            return "The list is too long for the server of the network mount: it would have " +
                   count + " entries.";
        default:
            return {};
    }
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

bool isServersRoot(const Nfs4Item& list, const CBPosixIdentity& who) {
    return list.form == Nfs4Form::named && who == CBPosixIdentity{CBPosixUser{0}};
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
    if (isServersRoot(list, who) && geteuid() == 0)
        boxes = boxesOfRoot(item, list, boxes);
    return withinMount(item, withinFolders(item, folder, who, boxes), list.target.isDirectory);
}

}  // namespace morvane
