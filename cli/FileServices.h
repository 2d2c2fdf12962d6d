// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVFileConnector.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "LsCommand.h"
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
    /// Writes the list of an item.
    NSErrorRef setAclEntries(const EntryList& entries, const NSURL& url);
    /// What a user or group can do to an item.
    Result<PermissionList> access(const NSURL& url, const NSUUID& who);
    /// The sizes of items. `progress` is called on another thread with what is known so far, and
    /// answers whether to go on.
    MVFileSizes sizes(const std::vector<NSURL>& urls, SizeProgress progress);
    /// What is inside a folder.
    Result<std::vector<NSURL>> contents(const NSURL& directory);
    /// Gives items new names.
    MVFileRenames rename(const std::vector<NSURL>& urls, const std::vector<std::string>& names);
    /// Propagates a list below a folder. `goesOn` is asked on another thread.
    NSErrorRef propagateAclEntries(const EntryList& entries, const NSURL& url,
                                   std::function<bool()> goesOn);

  private:
    /// The service's proxy, whose failures go to `fail`. If the right cannot be obtained, `fail` is
    /// called with the reason, and the proxy is null.
    std::shared_ptr<MVFileRequest> serviceFor(const char* right,
                                              std::function<void(NSErrorRef)> fail);

    const std::shared_ptr<MVFileConnector> connector_;
    bool privileged_ = false;
};

}  // namespace morvane
