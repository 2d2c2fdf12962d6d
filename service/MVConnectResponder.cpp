#include <MorvaneOperation/MVConnector.h>

namespace morvane {

MVFileRequest::~MVFileRequest() = default;
MVFileResponse::~MVFileResponse() = default;

const NSClass& MVConnectResponder::classObject() {
    static const NSClass c{"MVConnectResponder", &NSObject::classObject(), nullptr};
    return c;
}

void MVConnectResponder::progressWithReply(NSXPCReply<bool> reply) {
    if (const auto to = connector())
        to->progressWithReply(std::move(reply));
}

void MVConnectResponder::updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                                         NSXPCReply<bool> reply) {
    if (const auto to = connector())
        to->updateFileSizes(std::move(sizes), std::move(reply));
}

}  // namespace morvane
