// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <memory>

#include "AskedWork.h"
#include "ItemPath.h"
#include "LongWork.h"
#include "WriteOrder.h"

/// Answers the requests of one client, in both service processes. What takes long runs beside
/// everything else, within the limits of LongWork. Writes (lists, propagations, names) that concern
/// the same item, or one below the other, keep the client's order.
namespace morvane {

class FileRequestHandler final : public MVFileRequest {
  public:
    /// If the long work of a request throws, for example because there is no memory, only that
    /// request ends, and its reply is dropped. This applies to the whole service.
    static void outliveExceptions();

    /// Sets up a client's connection, so that its requests come to a handler of its own.
    static void serve(const std::shared_ptr<NSXPCConnection>& client);
    /// Does the same, except that the caller exports the handler.
    static void configure(const std::shared_ptr<NSXPCConnection>& client);
    /// A handler that works with other rights than the client's own, and trusts no path.
    static std::shared_ptr<FileRequestHandler> forPrivilegedClient(
        const std::shared_ptr<NSXPCConnection>& client);

    /// `client` is called back while long requests run, as long as it is there.
    explicit FileRequestHandler(std::weak_ptr<NSXPCConnection> client, PathRule rule = {});

#define MVHandledRequest(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT) \
    void NAME PARAMETERS override;
    MVFileRequestMessages(MVHandledRequest)
#undef MVHandledRequest

  private:
    const std::weak_ptr<NSXPCConnection> client_;
    const PathRule rule_;
    const AskedWork::Client asked_;
    const LongWork::Owner owner_;
    const std::shared_ptr<WriteOrder> writes_;
};

}  // namespace morvane
