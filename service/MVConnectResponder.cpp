// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVConnector.h>

#include <algorithm>

namespace morvane {

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

void MVConnectResponder::updateItemCounts(std::int64_t done, std::int64_t failed,
                                          NSXPCReply<bool> reply) {
    const auto to = connector();
    if (!to)
        return;
    const auto count = [](std::int64_t told) {
        return static_cast<std::uint64_t>(std::max<std::int64_t>(told, 0));
    };
    if (auto* const progress = dynamic_cast<MVItemProgress*>(to.get()))
        progress->updateItemCounts({count(done), count(failed)}, std::move(reply));
    else
        reply(true);
}

std::shared_ptr<MVConnector> MVConnectResponder::connector() const {
    return connector_.lock();
}

void MVConnectResponder::setConnector(std::weak_ptr<MVConnector> connector) {
    connector_ = std::move(connector);
}

}  // namespace morvane
