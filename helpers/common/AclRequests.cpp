#include "AclRequests.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
#include <variant>

#include "EffectiveAccess.h"
#include "PosixAclEntries.h"
#include "PosixAclReader.h"
#include "PosixAclReduction.h"
#include "PosixAclWriter.h"
#include "RequestErrors.h"

namespace morvane {

namespace {

constexpr std::size_t maxLossesTold = 20;

/// The item at `url`, and the list that it has.
struct ItemWithAcl {
    AclItem item;
    PosixAcl acl;
};

std::variant<ItemWithAcl, NSErrorRef> openWithAcl(const NSURL& url, const PathRule& rule) {
    if (!url.isFileURL())
        return posixError(EINVAL, url, "Only files and folders have an access-control list.");
    auto item = AclItem::open(url.path(), rule);
    if (const auto* code = std::get_if<int>(&item))
        return posixError(*code, url);
    auto read = readPosixAcl(std::get<AclItem>(item));
    if (const auto* failure = std::get_if<AclReadFailure>(&read))
        return posixError(failure->code, url,
                          failure->otherKindOfList
                              ? "The item has an NFSv4 access-control list, which cannot be shown."
                              : "");
    return ItemWithAcl{std::move(std::get<AclItem>(item)), std::move(std::get<PosixAcl>(read))};
}

std::string textOfLosses(const std::vector<std::string>& losses) {
    std::string text = "The file system cannot hold the whole list. It would lose";
    for (std::size_t i = 0; i != std::min(losses.size(), maxLossesTold); ++i)
        text += (i == 0 ? ": " : "; ") + losses[i];
    if (losses.size() > maxLossesTold)
        text += "; and " + std::to_string(losses.size() - maxLossesTold) + " more";
    return text + ".";
}

}  // namespace

AclEntriesAnswer aclEntriesOfUrl(const NSURL& url, const PathRule& rule) {
    auto found = openWithAcl(url, rule);
    if (const auto* error = std::get_if<NSErrorRef>(&found))
        return {{}, *error};
    return {entriesOfPosixAcl(std::get<ItemWithAcl>(found).acl), nullptr};
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
    const auto reduced =
        reduceToPosixAcl(entries, {old.owner, old.group, old.isDirectory, userIsInGroup});
    if (!reduced.losses.empty())
        return posixError(EOPNOTSUPP, url, textOfLosses(reduced.losses),
                          "Nothing was changed. Change these entries, or accept the nearest list "
                          "that grants no more.");
    const int code = writePosixAcl(item.path(), old, reduced.acl);
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
    return {permissionTree(effectiveBoxes(item, acl, *who), acl.isDirectory), nullptr};
}

}  // namespace morvane
