// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileConnector.h>

#include <mutex>
#include <utility>

namespace morvane {

struct MVFileConnector::State {
    template <class Handler>
    Handler held(const Handler& handler) const {
        const std::lock_guard lock(mutex);
        return handler;
    }

    mutable std::mutex mutex;
    ProgressHandler progress;
    CountHandler counts;
};

MVFileConnector::MVFileConnector(Creation creation)
    : MVConnector(creation), state_(std::make_unique<State>()) {}

MVFileConnector::~MVFileConnector() = default;

const NSClass& MVFileConnector::classObject() {
    static const NSClass c{"MVFileConnector", &MVConnector::classObject(), nullptr};
    return c;
}

MVConnector::EncodableClasses MVFileConnector::remoteEncodableClasses() {
    return {{"getAclEntriesWithUrl:reply:",
             {&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
              &MVAclPermission::classObject()}},
            {"getAclAccessWithUrl:uuid:reply:",
             {&NSArrayClass, &MVTreeNode::classObject(), &MVAclPermission::classObject()}},
            {"getSizesWithUrls:reply:", {&NSArrayClass, &MVFileSizeItem::classObject()}},
            {"renameUrls:names:reply:", {&NSArrayClass, &NSURLClass}},
            {"getContentsOfDirectory:indexPath:reply:", {&NSArrayClass, &NSURLClass}}};
}

MVConnector::EncodableClasses MVFileConnector::exportedEncodableClasses() {
    return {{"updateFileSizes:reply:", {&NSArrayClass, &MVFileSizeItem::classObject()}}};
}

void MVFileConnector::setProgressHandler(ProgressHandler handler) {
    const std::lock_guard lock(state_->mutex);
    state_->progress.swap(handler);
}

void MVFileConnector::setCountHandler(CountHandler handler) {
    const std::lock_guard lock(state_->mutex);
    state_->counts.swap(handler);
}

void MVFileConnector::progressWithReply(NSXPCReply<bool> reply) {
    const auto progress = state_->held(state_->progress);
    reply(!progress || progress({}));
}

void MVFileConnector::updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                                      NSXPCReply<bool> reply) {
    const auto progress = state_->held(state_->progress);
    reply(!progress || progress(std::move(sizes)));
}

void MVFileConnector::updateItemCounts(MVItemCounts counts, NSXPCReply<bool> reply) {
    const auto handler = state_->held(state_->counts);
    reply(!handler || handler(counts));
}

}  // namespace morvane
