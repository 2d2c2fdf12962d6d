#pragma once

#include <MorvaneOperation/MVConnector.h>

#include "AclCommand.h"

/// The command-line host's connector: what may come back from the services, and the answers to
/// their callbacks.
namespace morvane {

class FileConnector final : public MVConnector {
  public:
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    EncodableClasses remoteEncodableClasses() override;
    EncodableClasses exportedEncodableClasses() override;
    /// Both answer yes: go on.
    void progressWithReply(NSXPCReply<bool> reply) override;
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                         NSXPCReply<bool> reply) override;

    /// Asks the file service for the list of an item and waits for its answer.
    AclAnswer aclEntries(const NSURL& url);
};

}  // namespace morvane
