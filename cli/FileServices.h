// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVFileConnector.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "LsCommand.h"
#include "PropagateCommand.h"
#include "RenameCommand.h"
#include "SizeCommand.h"

/// The services as the commands use them: each call sends one request, and waits for its answer.
namespace morvane {

class FileServices {
  public:
    explicit FileServices(const char* queueLabel);

    /// From now on requests go to the privileged helper, each after its right was obtained. Paths
    /// must then hold no symbolic links.
    void usePrivilegedHelper() { privileged_ = true; }

    /// The list of an item.
    Result<EntryList> aclEntries(const NSURL& url);
    /// The lists of several items, each with its answer. They are asked for all at once; after
    /// `goesOn` has said no, those that have not come by then are cancelled.
    std::vector<Result<EntryList>> aclEntriesOfAll(const std::vector<NSURL>& urls,
                                                   const std::function<bool()>& goesOn);
    /// Writes the list of an item.
    NSErrorRef setAclEntries(const EntryList& entries, const NSURL& url);
    /// What a user or group can do to an item.
    Result<PermissionList> access(const NSURL& url, const NSUUID& who);
    /// Asks the same about several at once; `goesOn` is used as in aclEntriesOfAll().
    std::vector<Result<PermissionList>> accessOfAll(const NSURL& url,
                                                    const std::vector<NSUUID>& whom,
                                                    const std::function<bool()>& goesOn);
    /// The users and groups of this system, as many as are listed at once. Empty if a directory
    /// does not answer within some seconds, or `goesOn` has said no.
    static std::optional<std::vector<CBIdentityRef>> identities(
        const std::function<bool()>& goesOn);
    /// The sizes of items. `progress` is called on another thread with what is known so far, and
    /// answers whether to go on.
    MVFileSizes sizes(const std::vector<NSURL>& urls, SizeProgress progress);
    /// What is inside a folder.
    Result<std::vector<NSURL>> contents(const NSURL& directory);
    /// Gives items new names.
    MVFileRenames rename(const std::vector<NSURL>& urls, const std::vector<std::string>& names);
    /// Propagates a list below a folder. `goesOn` is asked on another thread, with how far it is.
    Propagated propagateAclEntries(const EntryList& entries, const NSURL& url,
                                   std::function<bool(const MVItemCounts&)> goesOn);

  private:
    /// The connection to the service; null with `error` set if the right cannot be obtained.
    std::shared_ptr<NSXPCConnection> connectionFor(const char* right, NSErrorRef& error);
    /// The service's proxy, whose failures go to `fail`.
    std::shared_ptr<MVFileRequest> serviceOn(NSXPCConnection& connection,
                                             std::function<void(NSErrorRef)> fail) const;
    /// The same; null if the right cannot be obtained, of which `fail` is called with the reason.
    std::shared_ptr<MVFileRequest> serviceFor(const char* right,
                                              std::function<void(NSErrorRef)> fail);
    /// The answers to `count` requests of one kind, which are sent all at once.
    template <class T, class Send>
    std::vector<Result<T>> askAll(const char* right, std::size_t count,
                                  const std::function<bool()>& goesOn, Send send);

    const std::shared_ptr<MVFileConnector> connector_;
    bool privileged_ = false;
};

}  // namespace morvane
