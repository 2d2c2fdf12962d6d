// SPDX-License-Identifier: MIT
#include "PosixAclReader.h"

#include <acl/libacl.h>
#include <fcntl.h>
#include <sys/acl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "AclHandle.h"

namespace morvane {

namespace {

PosixRights rightsOfMode(mode_t bits) {
    return static_cast<PosixRights>(bits & 7U);
}

PosixList listOfMode(mode_t mode) {
    return {.owner = rightsOfMode(mode >> 6U),
            .owningGroup = rightsOfMode(mode >> 3U),
            .others = rightsOfMode(mode),
            .mask = std::nullopt,
            .users = {},
            .groups = {}};
}

PosixRights rightsOfEntry(acl_entry_t entry) {
    acl_permset_t permissions = nullptr;
    PosixRights rights = PosixNothing;
    if (acl_get_permset(entry, &permissions) != 0)
        return rights;
    if (acl_get_perm(permissions, ACL_READ) == 1)
        rights = rights | PosixRead;
    if (acl_get_perm(permissions, ACL_WRITE) == 1)
        rights = rights | PosixWrite;
    if (acl_get_perm(permissions, ACL_EXECUTE) == 1)
        rights = rights | PosixExecute;
    return rights;
}

/// An errno value if the list is not well-formed.
Result<PosixList, int> listOfAcl(acl_t acl) {
    PosixList list;
    acl_entry_t entry = nullptr;
    int more = acl_get_entry(acl, ACL_FIRST_ENTRY, &entry);
    for (; more == 1; more = acl_get_entry(acl, ACL_NEXT_ENTRY, &entry)) {
        acl_tag_t tag = ACL_UNDEFINED_TAG;
        if (acl_get_tag_type(entry, &tag) != 0)
            return Failure{errno};
        const PosixRights rights = rightsOfEntry(entry);
        switch (tag) {
            case ACL_USER_OBJ:
                list.owner = rights;
                break;
            case ACL_GROUP_OBJ:
                list.owningGroup = rights;
                break;
            case ACL_OTHER:
                list.others = rights;
                break;
            case ACL_MASK:
                list.mask = rights;
                break;
            case ACL_USER:
            case ACL_GROUP: {
                const QualifierHandle id(static_cast<id_t*>(acl_get_qualifier(entry)));
                if (!id)
                    return Failure{errno};
                (tag == ACL_USER ? list.users : list.groups).push_back({*id, rights});
                break;
            }
            default:
                return Failure{EINVAL};
        }
    }
    if (more < 0)
        return Failure{errno};
    std::sort(list.users.begin(), list.users.end());
    std::sort(list.groups.begin(), list.groups.end());
    return list;
}

}  // namespace

int systemAttributeProbe(const char* path, const char* name) {
    return getxattr(path, name, nullptr, 0) >= 0 ? 0 : errno;
}

Result<PosixAcl, int> readPosixAcl(const std::string& path, AttributeProbe probe) {
    const auto item = AclItem::open(path);
    if (!item)
        return Failure{item.error()};
    return readPosixAcl(*item, probe);
}

Result<PosixAcl, int> readPosixAcl(const AclItem& item, AttributeProbe probe) {
    const std::string& name = item.path();
    struct stat status {};
    if (stat(name.c_str(), &status) != 0)
        return Failure{errno};

    for (const char* attribute : {"system.nfs4_acl_xdr", "system.nfs4_acl"}) {
        const int code = probe(name.c_str(), attribute);
        if (code == 0)
            return Failure{EOPNOTSUPP};
        if (code != ENODATA && code != EOPNOTSUPP)
            return Failure{code};
    }

    PosixAcl result{.owner = status.st_uid,
                    .group = status.st_gid,
                    .isDirectory = S_ISDIR(status.st_mode),
                    .access = {},
                    .defaults = std::nullopt,
                    .hasLists = true};
    if (const AclHandle access{acl_get_file(name.c_str(), ACL_TYPE_ACCESS)}) {
        auto list = listOfAcl(access.get());
        if (!list)
            return Failure{list.error()};
        result.access = *std::move(list);
    } else if (errno == EOPNOTSUPP) {
        result.access = listOfMode(status.st_mode);
        result.hasLists = false;
        return result;
    } else {
        return Failure{errno};
    }

    if (result.isDirectory) {
        const AclHandle defaults{acl_get_file(name.c_str(), ACL_TYPE_DEFAULT)};
        if (!defaults)
            return Failure{errno};
        if (acl_entries(defaults.get()) > 0) {
            auto list = listOfAcl(defaults.get());
            if (!list)
                return Failure{list.error()};
            result.defaults = *std::move(list);
        }
    }
    return result;
}

}  // namespace morvane
