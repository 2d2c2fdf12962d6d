#include "FileConnector.h"

#include <future>
#include <utility>
#include <variant>

namespace morvane {

const NSClass& FileConnector::classObject() {
    static const NSClass c{"FileConnector", &MVConnector::classObject(), nullptr};
    return c;
}

MVConnector::EncodableClasses FileConnector::remoteEncodableClasses() {
    return {{"getAclEntriesWithUrl:reply:",
             {&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
              &MVAclPermission::classObject()}},
            {"getAclAccessWithUrl:uuid:reply:",
             {&NSArrayClass, &MVTreeNode::classObject(), &MVAclPermission::classObject()}},
            {"getSizesWithUrls:reply:", {&NSArrayClass, &MVFileSizeItem::classObject()}},
            {"getContentsOfDirectory:indexPath:reply:", {&NSArrayClass, &NSURLClass}}};
}

MVConnector::EncodableClasses FileConnector::exportedEncodableClasses() {
    return {{"updateFileSizes:reply:", {&NSArrayClass, &MVFileSizeItem::classObject()}}};
}

bool FileConnector::tell(const std::vector<std::shared_ptr<MVFileSizeItem>>& sizes) {
    SizeProgress progress;
    {
        const std::lock_guard lock(mutex_);
        progress = progress_;
    }
    return !progress || progress(sizes);
}

void FileConnector::progressWithReply(NSXPCReply<bool> reply) {
    reply(tell({}));
}

void FileConnector::updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>> sizes,
                                    NSXPCReply<bool> reply) {
    reply(tell(sizes));
}

namespace {

/// The proxy of `connector`'s file service, whose failures end `answer`.
template <class Answer>
std::shared_ptr<MVFileRequest> serviceAnswering(FileConnector& connector,
                                                std::shared_ptr<std::promise<Answer>> answer) {
    return connector.connection()->remoteObjectProxyWithErrorHandler<MVFileRequest>(
        [answer](NSErrorRef error) {
            answer->set_value({{}, std::move(error)});
        });
}

}  // namespace

// Of the reply and the error handler of a request one runs, once.

AclAnswer FileConnector::aclEntries(const NSURL& url) {
    const auto answer = std::make_shared<std::promise<AclAnswer>>();
    serviceAnswering(*this, answer)
        ->getAclEntriesWithUrl(url, [answer](EntryList entries, NSErrorRef error) {
            answer->set_value({std::move(entries), std::move(error)});
        });
    return answer->get_future().get();
}

NSErrorRef FileConnector::setAclEntries(const EntryList& entries, const NSURL& url) {
    struct Answer {
        std::monostate nothing;
        NSErrorRef error;
    };
    const auto answer = std::make_shared<std::promise<Answer>>();
    serviceAnswering(*this, answer)->setAclEntries(entries, url, [answer](NSErrorRef error) {
        answer->set_value({{}, std::move(error)});
    });
    return answer->get_future().get().error;
}

AccessAnswer FileConnector::access(const NSURL& url, const NSUUID& who) {
    const auto answer = std::make_shared<std::promise<AccessAnswer>>();
    serviceAnswering(*this, answer)
        ->getAclAccessWithUrl(
            url, who,
            [answer](std::vector<std::shared_ptr<MVTreeNode>> permissions, NSErrorRef error) {
                answer->set_value({std::move(permissions), std::move(error)});
            });
    return answer->get_future().get();
}

SizesAnswer FileConnector::sizes(const std::vector<NSURL>& urls, SizeProgress progress) {
    {
        const std::lock_guard lock(mutex_);
        progress_ = std::move(progress);
    }
    const auto answer = std::make_shared<std::promise<SizesAnswer>>();
    serviceAnswering(*this, answer)
        ->getSizesWithUrls(urls, [answer](SizeList sizes, NSErrorRef error) {
            answer->set_value({std::move(sizes), std::move(error)});
        });
    auto result = answer->get_future().get();
    const std::lock_guard lock(mutex_);
    progress_ = {};
    return result;
}

ContentsAnswer FileConnector::contents(const NSURL& directory) {
    const auto answer = std::make_shared<std::promise<ContentsAnswer>>();
    serviceAnswering(*this, answer)
        ->getContentsOfDirectory(directory, {},
                                 [answer](std::vector<NSURL> urls, NSErrorRef error) {
                                     answer->set_value({std::move(urls), std::move(error)});
                                 });
    return answer->get_future().get();
}

}  // namespace morvane
