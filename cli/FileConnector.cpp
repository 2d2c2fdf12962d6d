#include "FileConnector.h"

#include <future>
#include <utility>

namespace morvane {

const NSClass& FileConnector::classObject() {
    static const NSClass c{"FileConnector", &MVConnector::classObject(), nullptr};
    return c;
}

MVConnector::EncodableClasses FileConnector::remoteEncodableClasses() {
    return {{"getAclEntriesWithUrl:reply:",
             {&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
              &MVAclPermission::classObject()}}};
}

MVConnector::EncodableClasses FileConnector::exportedEncodableClasses() {
    return {{"updateFileSizes:reply:", {&NSArrayClass, &MVFileSizeItem::classObject()}}};
}

void FileConnector::progressWithReply(NSXPCReply<bool> reply) {
    reply(true);
}

void FileConnector::updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>,
                                    NSXPCReply<bool> reply) {
    reply(true);
}

AclAnswer FileConnector::aclEntries(const NSURL& url) {
    // One of the two runs, once.
    auto answer = std::make_shared<std::promise<AclAnswer>>();
    auto result = answer->get_future();
    connection()
        ->remoteObjectProxyWithErrorHandler<MVFileRequest>([answer](NSErrorRef error) {
            answer->set_value({{}, std::move(error)});
        })
        ->getAclEntriesWithUrl(url, [answer](EntryList entries, NSErrorRef error) {
            answer->set_value({std::move(entries), std::move(error)});
        });
    return result.get();
}

}  // namespace morvane
