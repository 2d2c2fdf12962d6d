// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVConnector.h>

#include <functional>
#include <future>
#include <memory>
#include <mutex>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "LsCommand.h"
#include "RenameCommand.h"
#include "SizeCommand.h"

/// The command-line host's connector: what may come back from the services, and the answers to
/// their callbacks.
namespace morvane {

class FileConnector final : public MVConnector {
  public:
    using MVConnector::MVConnector;
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    EncodableClasses remoteEncodableClasses() override;
    EncodableClasses exportedEncodableClasses() override;
    /// Both answer whether the running command goes on.
    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;

    /// From now on requests go to the privileged helper, each after its right was obtained. Paths
    /// must then hold no symbolic links.
    void usePrivilegedHelper() { privileged_ = true; }

    /// Asks the service for the list of an item and waits for its answer.
    Result<EntryList> aclEntries(const NSURL& url);
    /// Likewise to write it.
    NSErrorRef setAclEntries(const EntryList& entries, const NSURL& url);
    /// Likewise for what a user or group can do to an item.
    Result<PermissionList> access(const NSURL& url, const NSUUID& who);
    /// Likewise for sizes. `progress` is told what is known so far, on another thread, and answers
    /// whether to go on.
    SizesReply sizes(const std::vector<NSURL>& urls, SizeProgress progress);
    /// Likewise for what is inside a folder.
    Result<std::vector<NSURL>> contents(const NSURL& directory);
    /// Likewise to give items new names.
    RenamesAnswer rename(const std::vector<NSURL>& urls, const std::vector<std::string>& names);
    /// Likewise to propagate a list below a folder. `goesOn` is asked on another thread.
    NSErrorRef propagateAclEntries(const EntryList& entries, const NSURL& url,
                                   std::function<bool()> goesOn);

  private:
    bool tell(const std::vector<std::shared_ptr<MVFileSizeItem>>& sizes);

    /// The service's proxy, whose failures `fail` hears of; null, and `fail` was told why, if the
    /// right is not to be had.
    std::shared_ptr<MVFileRequest> serviceOrTell(const char* right,
                                                 std::function<void(NSErrorRef)> fail);

    bool privileged_ = false;
    std::mutex mutex_;
    SizeProgress progress_;
};

}  // namespace morvane
