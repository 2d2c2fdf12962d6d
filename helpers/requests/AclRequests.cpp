// SPDX-License-Identifier: MIT
#include "AclRequests.h"

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/PosixAclEntries.h>
#include <MorvaneOperation/PosixAclReduction.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>
#include <utility>
#include <variant>

#include "EffectiveAccess.h"
#include "Nfs4Access.h"
#include "Nfs4Names.h"
#include "Nfs4Storing.h"
#include "PosixAclWriter.h"
#include "RequestErrors.h"
#include "StoredAcl.h"

namespace morvane {

namespace {

/// The item at `url`, and the list that it has.
struct ItemWithAcl {
    AclItem item;
    StoredAcl acl;
};

Result<ItemWithAcl> openWithAcl(const NSURL& url, const PathRule& rule) {
    if (!url.isFileURL())
        return Failure{
            posixError(EINVAL, url, phrase("Only files and folders have an access-control list."))};
    auto item = AclItem::open(url.path(), rule);
    if (!item)
        return Failure{posixError(item.error(), url)};
    auto acl = readStoredAcl(*item);
    if (!acl)
        return Failure{posixError(acl.error(), url,
                                  acl.error() == EBADMSG
                                      ? phrase("The item's NFSv4 access-control list is "
                                               "damaged, or has more than 1024 entries.")
                                      : Phrase())};
    return ItemWithAcl{*std::move(item), *std::move(acl)};
}

Nfs4Replacement replaced(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                         const Nfs4Item& old) {
    return nfs4AclOfEntries(entries, old.acl, old.target, systemNfs4Names());
}

/// Where in `wanted` the entries of `list` stand that are shown, which has the same in another
/// order; behind the last, how many they are.
std::vector<std::size_t> placesIn(const Nfs4Acl& wanted, const Nfs4Acl& list) {
    const auto shown = [](const Nfs4Acl& acl) {
        std::vector<Nfs4Entry> entries;
        std::copy_if(acl.entries.begin(), acl.entries.end(), std::back_inserter(entries),
                     [](const Nfs4Entry& entry) { return entry.type <= Nfs4Deny; });
        return entries;
    };
    const auto from = shown(wanted);
    std::vector<bool> isTaken(from.size());
    std::vector<std::size_t> places;
    for (const auto& entry : shown(list)) {
        std::size_t place = 0;
        while (isTaken[place] || from[place] != entry)
            ++place;
        isTaken[place] = true;
        places.push_back(place);
    }
    places.push_back(from.size());
    return places;
}

NSErrorRef writeNative(const AclItem& item, const Nfs4Item& old, const Nfs4Acl& wanted,
                       const NSURL& url) {
    const auto list = old.form == Nfs4Form::named && wanted != old.acl
                          ? withOthersAllowedFirst(wanted, old.acl, old.target, systemNfs4Names())
                          : wanted;
    auto losses = Nfs4Writer().write(item, old, list);
    if (!losses)
        return posixError(losses.error(), url, whyNfs4AclIsRefused(losses.error(), old, list));
    if (losses->empty())
        return nullptr;
    const auto text =
        phrase("The server of the network mount has stored another list. It differs in: %1.",
               textOfStoring(*losses));
    const auto places = placesIn(wanted, list);
    for (auto& loss : *losses)
        loss.entry = places[loss.entry];
    return posixError(EREMOTEIO, url, text,
                      phrase("The item has the list that the server has stored: look at it, and "
                             "change what must not stay so."),
                      errorsOfLosses(*losses));
}

/// What the entries of the item tell of where they were read.
std::shared_ptr<const MVAclOrigin> originOf(const StoredAcl& acl, const NSURL& url) {
    if (const auto* native = std::get_if<Nfs4Item>(&acl)) {
        const auto& target = native->target;
        return MVAclOrigin::initWithValues({url, target.isDirectory, target.owner, target.group,
                                            MVAclStorage::nfs4, digestOf(native->acl, target)});
    }
    const auto& list = std::get<PosixAcl>(acl);
    return MVAclOrigin::initWithValues(
        {url, list.isDirectory, list.owner, list.group,
         list.hasLists ? MVAclStorage::posix : MVAclStorage::mode, digestOf(list)},
        isShownWhole(list) ? MVAclOrigin::StoredLists() : storedListsOf(list));
}

/// Whether entries that were read from this item were read from another list. (Those that were read
/// from another item are a copy, and no edit.)
bool wereReadBefore(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                    const MVAclOrigin::Values& now) {
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
        const auto& origin = entry->origin();
        return origin && origin->values().url == now.url && origin->values().digest != now.digest;
    });
}

}  // namespace

Result<std::vector<std::shared_ptr<MVAclEntry>>> aclEntriesOfUrl(const NSURL& url,
                                                                 const PathRule& rule) {
    const auto found = openWithAcl(url, rule);
    if (!found)
        return Failure{found.error()};
    const auto& acl = found->acl;
    const auto* native = std::get_if<Nfs4Item>(&acl);
    auto entries = native ? entriesOfNfs4Acl(native->acl, native->target, systemNfs4Names())
                          : entriesOfPosixAcl(std::get<PosixAcl>(acl));
    const auto origin = originOf(acl, url);
    for (const auto& entry : entries)
        entry->setOrigin(origin);
    return entries;
}

NSErrorRef setAclEntriesOfUrl(const std::vector<std::shared_ptr<MVAclEntry>>& entries,
                              const NSURL& url, const PathRule& rule,
                              const std::function<bool()>& goesOn) {
    const auto found = openWithAcl(url, rule);
    if (!found)
        return found.error();
    const auto& [item, old] = *found;
    if (const int code = whyNotChangeable(item.path(), rule))
        return posixError(
            code, url,
            phrase("Only files and folders are changed on behalf of another user, and a "
                   "file with several names only for its owner."));
    if (wereReadBefore(entries, originOf(old, url)->values()))
        return NSError::errorWithDescription(
            MVAclErrorDomain, MVAclChanged, phrase("The list has changed since it was read."),
            phrase("Nothing was changed. Read it again, and make the change on what it is now."),
            {{NSURLErrorKey, url}});
    if (const auto* native = std::get_if<Nfs4Item>(&old)) {
        const auto wanted = replaced(entries, *native);
        if (!wanted.losses.empty())
            return errorOfLosses(wanted.losses, entries, url);
        return writeNative(item, *native, wanted.acl, url);
    }
    const auto& list = std::get<PosixAcl>(old);
    auto target = PosixAclTarget::of(list, entries);
    target.goesOn = goesOn;
    const auto wanted = reduceToPosixAcl(entries, target);
    if (const auto error = errorOfFit(wanted.fit, url))
        return error;
    if (!wanted.losses.empty())
        return errorOfLosses(wanted.losses, entries, url);
    const int code = writePosixAcl(item.path(), list, wanted.acl);
    return code == 0 ? nullptr
                     : posixError(code, url,
                                  whyPosixAclIsRefused(code, item.path(), namesIn(wanted.acl)));
}

Result<std::vector<std::shared_ptr<MVTreeNode>>> aclAccessOfUrl(const NSURL& url,
                                                                const NSUUID& uuid,
                                                                const PathRule& rule) {
    const auto who = posixIdentityOfUUID(uuid);
    if (!who || std::holds_alternative<CBCreator>(*who))
        return Failure{
            posixError(EINVAL, url, phrase("The identity is no user or group of this system."))};
    const auto found = openWithAcl(url, rule);
    if (!found)
        return Failure{found.error()};
    const auto& [item, acl] = *found;
    const auto* native = std::get_if<Nfs4Item>(&acl);
    if (native && isServersRoot(*native, *who) && geteuid() != 0)
        return Failure{
            posixError(EPERM, url,
                       phrase("What root may do on a network mount is for its server to say, which "
                              "takes root for somebody else, or does not, and tells only root."),
                       phrase("Ask as root, or with the privileged helper."))};
    if (native)
        return permissionTree(effectiveBoxes(item, *native, *who, systemNfs4Names()),
                              native->target.isDirectory);
    const auto& list = std::get<PosixAcl>(acl);
    return permissionTree(effectiveBoxes(item, list, *who), list.isDirectory);
}

}  // namespace morvane
