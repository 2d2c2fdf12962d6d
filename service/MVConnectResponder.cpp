// SPDX-License-Identifier: MIT
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

std::shared_ptr<MVConnector> MVConnectResponder::connector() const {
    return connector_.lock();
}

void MVConnectResponder::setConnector(std::weak_ptr<MVConnector> connector) {
    connector_ = std::move(connector);
}

}  // namespace morvane
