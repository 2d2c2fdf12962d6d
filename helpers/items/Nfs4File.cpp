// SPDX-License-Identifier: MIT
#include "Nfs4File.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>

#include "Nfs4Names.h"
#include "Nfs4Storing.h"

namespace morvane {

namespace {

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
    // The attribute exists; if it is gone, this is another kind of file system by now.
    return setxattr(item.path().c_str(), attributeOfForm(old.form), bytes->data(), bytes->size(),
                    XATTR_REPLACE) == 0
               ? 0
               : errno;
}

}  // namespace

Result<Nfs4Item, int> readNfs4Item(const AclItem& item) {
    struct stat status {};
    if (stat(item.path().c_str(), &status) != 0)
        return Failure{errno};
    for (const auto form : {Nfs4Form::numbered, Nfs4Form::named}) {
        const auto read = readAttribute(item, attributeOfForm(form));
        if (!read) {
            if (read.error() == ENODATA || read.error() == EOPNOTSUPP)
                continue;
            return Failure{read.error()};
        }
        auto acl = decodeNfs4Acl(*read, form);
        if (!acl)
            return Failure{EBADMSG};
        return Nfs4Item{
            {status.st_uid, status.st_gid, S_ISDIR(status.st_mode)}, form, std::move(*acl)};
    }
    return Failure{ENODATA};
}

Result<std::vector<EntryLoss>, int> Nfs4Writer::write(const AclItem& item, const Nfs4Item& old,
                                                      const Nfs4Acl& acl) const {
    using Losses = std::vector<EntryLoss>;
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
    // The server does not report which of the two it refuses.
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
    if (code != 0)
        return Failure{code};
    if (list == old.acl)
        return Losses();
    const auto stored = readNfs4Item(item);
    if (stored)
        return lostInStoring(list, stored->acl, old.target, names);
    if (stored.error() == EACCES)  // Its new list may hide it.
        return Losses();
    return Failure{stored.error()};
}

Phrase whyNfs4AclIsRefused(int code, const Nfs4Item& old, const Nfs4Acl& acl) {
    const auto count = acl.entries.size();
    if (acl.entries.size() > maxNfs4Entries)
        return phrase("The list would have %1 entries; it can have at most %2.", count,
                      maxNfs4Entries);
    const auto bytes = encodeNfs4Acl(acl, old.form);
    if (bytes && bytes->size() > maxAttributeSize)
        return phrase("The list would have %1 bytes; the system takes at most %2.", bytes->size(),
                      maxAttributeSize);
    if (old.form != Nfs4Form::named)
        return {};
    switch (code) {
        case EIO:
            return phrase(
                "The server of the network mount has refused the list without a reason. Some hold "
                "no entry that is inherited by one level only (\"All descendants\" is off, a "
                "folder's other boxes are on), and some no list of so many entries (%1).",
                count);
        case EINVAL:
            return phrase(
                "The server of the network mount does not know somebody whom the list names. The "
                "domain that it and this system have in common stands in /etc/idmapd.conf.");
        case E2BIG:
        case ERANGE:
        case ENOSPC:
        case EFBIG:
            return phrase(
                "The list is too long for the server of the network mount: it would have %1 "
                "entries.",
                count);
        default:
            return {};
    }
}

}  // namespace morvane
