// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace morvane {

/* This list is the one place where a message is declared: its member, its selector, its parameters,
   and the right that the privileged helper requires for it. Each row is
   MESSAGE(member, selector, parameters, arguments, right). */
#define MVFileRequestMessages(MESSAGE)                                                           \
    /* The access-control list of the item, in the list's own order. */                          \
    MESSAGE(getAclEntriesWithUrl, "getAclEntriesWithUrl:reply:",                                 \
            (NSURL url, NSXPCReply<std::vector<std::shared_ptr<MVAclEntry>>, NSErrorRef> reply), \
            (std::move(url), std::move(reply)), MVRightGetFileAcl)                               \
    /* What the identity `uuid` can really do to the item: a tree of permissions. */             \
    MESSAGE(getAclAccessWithUrl, "getAclAccessWithUrl:uuid:reply:",                              \
            (NSURL url, NSUUID uuid,                                                             \
             NSXPCReply<std::vector<std::shared_ptr<MVTreeNode>>, NSErrorRef> reply),            \
            (std::move(url), uuid, std::move(reply)), MVRightGetFileAccess)                      \
    /* Replaces the item's list. */                                                              \
    MESSAGE(setAclEntries, "setAclEntries:url:reply:",                                           \
            (std::vector<std::shared_ptr<MVAclEntry>> entries, NSURL url,                        \
             NSXPCReply<NSErrorRef> reply),                                                      \
            (std::move(entries), std::move(url), std::move(reply)), MVRightSetFileAcl)           \
    /* Gives everything below the folder what it inherits of `entries`. */                       \
    MESSAGE(propagateAclEntries, "propagateAclEntries:url:reply:",                               \
            (std::vector<std::shared_ptr<MVAclEntry>> entries, NSURL url,                        \
             NSXPCReply<NSErrorRef> reply),                                                      \
            (std::move(entries), std::move(url), std::move(reply)), MVRightPropagateFileAcl)     \
    /* Gives each of `urls` the name at its place in `names`. The reply has the resulting URLs   \
       and the POSIX code of each (0: renamed). */                                               \
    MESSAGE(renameUrls, "renameUrls:names:reply:",                                               \
            (std::vector<NSURL> urls, std::vector<std::string> names,                            \
             NSXPCReply<std::vector<NSURL>, std::vector<std::int64_t>, NSErrorRef> reply),       \
            (std::move(urls), std::move(names), std::move(reply)), MVRightRenameFiles)           \
    /* The sizes in bytes of the items with all that is below them, in the order of `urls`. */   \
    MESSAGE(getSizesWithUrls, "getSizesWithUrls:reply:",                                         \
            (std::vector<NSURL> urls,                                                            \
             NSXPCReply<std::vector<std::shared_ptr<MVFileSizeItem>>, NSErrorRef> reply),        \
            (std::move(urls), std::move(reply)), MVRightGetFileSize)                             \
    /* The items inside the folder, in the folder's own order. `indexPath` is the client's. */   \
    MESSAGE(getContentsOfDirectory, "getContentsOfDirectory:indexPath:reply:",                   \
            (NSURL directory, NSIndexPath indexPath,                                             \
             NSXPCReply<std::vector<NSURL>, NSErrorRef> reply),                                  \
            (std::move(directory), std::move(indexPath), std::move(reply)), MVRightGetFileSize)

/// The requests that a client makes of the file service or the privileged helper.
///
///     connection->remoteObjectProxyWithErrorHandler<MVFileRequest>(onError)
///         ->getAclEntriesWithUrl(url, [](auto entries, NSErrorRef error) { redraw(); });
///
/// Every reply ends with an error; null means success, and the arguments before it are then
/// complete. An error of the file system is of NSPOSIXErrorDomain and has the URL under
/// NSURLErrorKey.
class MORVANE_EXPORT MVFileRequest {
  public:
    virtual ~MVFileRequest();
    MVFileRequestMessages(NSXPC_DECLARE_MESSAGE)
};

NSXPC_DECLARE_PROTOCOL(MVFileRequest, MORVANE_EXPORT)

/// A message and the right that the privileged helper requires for it.
struct MVGuardedMessage {
    std::string_view selector;
    std::string_view right;
};

#define MVFileRequestRight(NAME, SELECTOR, PARAMS, ARGS, RIGHT) MVGuardedMessage{SELECTOR, RIGHT},
inline constexpr auto MVFileRequestRights =
    std::to_array<MVGuardedMessage>({ MVFileRequestMessages(MVFileRequestRight) });
#undef MVFileRequestRight

}  // namespace morvane
