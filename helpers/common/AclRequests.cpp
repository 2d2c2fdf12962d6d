#include "AclRequests.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>

#include <cerrno>
#include <string>
#include <utility>
#include <variant>

#include "EffectiveAccess.h"
#include "Nfs4File.h"
#include "Nfs4Names.h"
#include "PosixAclReader.h"
#include "PosixAclWriter.h"
#include "RequestErrors.h"

namespace morvane {

namespace {

/// The item at `url`, and the list that it has, of either kind.
struct ItemWithAcl {
    AclItem item;
    std::variant<PosixAcl, Nfs4Item> acl;
};

std::variant<ItemWithAcl, NSErrorRef> openWithAcl(const NSURL& url, const PathRule& rule) {
    if (!url.isFileURL())
        return posixError(EINVAL, url, "Only files and folders have an access-control list.");
    auto item = AclItem::open(url.path(), rule);
    if (const auto* code = std::get_if<int>(&item))
        return posixError(*code, url);
    auto& opened = std::get<AclItem>(item);
    auto read = readPosixAcl(opened);
    if (auto* acl = std::get_if<PosixAcl>(&read))
        return ItemWithAcl{std::move(opened), std::move(*acl)};
    const auto& failure = std::get<AclReadFailure>(read);
    if (!failure.otherKindOfList)
        return posixError(failure.code, url);
    auto native = readNfs4Item(opened);
    if (const auto* code = std::get_if<int>(&native))
        return posixError(*code, url,
                          *code == EBADMSG ? "The item's NFSv4 access-control list is damaged, or "
                                             "has more than 1024 entries."
                                           : "");
    return ItemWithAcl{std::move(opened), std::move(std::get<Nfs4Item>(native))};
}

PosixAclReduction reduced(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                          const PosixAcl& old) {
    return reduceToPosixAcl(entries, {old.owner, old.group, old.isDirectory, userIsInGroup});
}

Nfs4Replacement replaced(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                         const Nfs4Item& old) {
    return nfs4AclOfEntries(entries, old.acl, old.target, systemNfs4Names());
}

}  // namespace

AclEntriesAnswer aclEntriesOfUrl(const NSURL& url, const PathRule& rule) {
    auto found = openWithAcl(url, rule);
    if (const auto* error = std::get_if<NSErrorRef>(&found))
        return {{}, *error};
    const auto& acl = std::get<ItemWithAcl>(found).acl;
    if (const auto* native = std::get_if<Nfs4Item>(&acl))
        return {entriesOfNfs4Acl(native->acl, native->target, systemNfs4Names()), nullptr};
    return {entriesOfPosixAcl(std::get<PosixAcl>(acl)), nullptr};
}

NSErrorRef setAclEntriesOfUrl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                              const NSURL& url, const PathRule& rule) {
    auto found = openWithAcl(url, rule);
    if (const auto* error = std::get_if<NSErrorRef>(&found))
        return *error;
    const auto& [item, old] = std::get<ItemWithAcl>(found);
    if (const int code = whyNotChangeable(item.path(), rule))
        return posixError(code, url,
                          "Only files and folders are changed on behalf of another user, and a "
                          "file with several names only for its owner.");
    int code = 0;
    if (const auto* native = std::get_if<Nfs4Item>(&old)) {
        const auto wanted = replaced(entries, *native);
        if (!wanted.losses.empty())
            return errorOfLosses(wanted.losses, url);
        code = writeNfs4Acl(item, *native, wanted.acl);
    } else {
        const auto& list = std::get<PosixAcl>(old);
        const auto wanted = reduced(entries, list);
        if (!wanted.losses.empty())
            return errorOfLosses(wanted.losses, url);
        code = writePosixAcl(item.path(), list, wanted.acl);
    }
    return code == 0 ? nullptr : posixError(code, url);
}

AclAccessAnswer aclAccessOfUrl(const NSURL& url, const NSUUID& uuid, const PathRule& rule) {
    const auto who = posixIdentityOfUUID(uuid);
    if (!who)
        return {{}, posixError(EINVAL, url, "The identity is no user or group of this system.")};
    auto found = openWithAcl(url, rule);
    if (const auto* error = std::get_if<NSErrorRef>(&found))
        return {{}, *error};
    const auto& [item, acl] = std::get<ItemWithAcl>(found);
    if (const auto* native = std::get_if<Nfs4Item>(&acl))
        return {permissionTree(effectiveBoxes(item, *native, *who, systemNfs4Names()),
                               native->target.isDirectory),
                nullptr};
    const auto& list = std::get<PosixAcl>(acl);
    return {permissionTree(effectiveBoxes(item, list, *who), list.isDirectory), nullptr};
}

}  // namespace morvane
