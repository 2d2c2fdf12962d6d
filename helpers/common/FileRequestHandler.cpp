#include "FileRequestHandler.h"

#include <MorvaneOperation/MVFileResponse.h>

#include "AclRequests.h"
#include "DirectoryRequests.h"
#include "PropagateRequests.h"
#include "RenameRequests.h"
#include "SizeRequests.h"

namespace morvane {

void FileRequestHandler::outliveExceptions() {
    NSSetUncaughtExceptionHandler([](const NSUncaughtException&) {});
}

void FileRequestHandler::configure(const std::shared_ptr<NSXPCConnection>& client) {
    const auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    const NSClassSet entries{&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
                             &MVAclPermission::classObject()};
    const NSClassSet urls{&NSArrayClass, &NSURLClass};
    requests->setClasses(entries, "setAclEntries:url:reply:", 0, false);
    requests->setClasses(entries, "propagateAclEntries:url:reply:", 0, false);
    requests->setClasses(urls, "renameUrls:names:reply:", 0, false);
    requests->setClasses(urls, "getSizesWithUrls:reply:", 0, false);
    client->setExportedInterface(requests);
    client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<MVFileResponse>());
}

void FileRequestHandler::serve(const std::shared_ptr<NSXPCConnection>& client) {
    configure(client);
    client->setExportedObject<MVFileRequest>(std::make_shared<FileRequestHandler>(client));
}

std::shared_ptr<FileRequestHandler> FileRequestHandler::forPrivilegedClient(
    const std::shared_ptr<NSXPCConnection>& client) {
    return std::make_shared<FileRequestHandler>(
        client, PathRule{static_cast<std::uint32_t>(client->effectiveUserIdentifier().value())});
}

FileRequestHandler::FileRequestHandler(std::weak_ptr<NSXPCConnection> client, PathRule rule)
    : client_(std::move(client)), rule_(rule) {}

void FileRequestHandler::getAclEntriesWithUrl(
    NSURL url, NSXPCReply<std::vector<std::shared_ptr<MVAclEntry>>, NSErrorRef> reply) {
    auto answer = aclEntriesOfUrl(url, rule_);
    reply(std::move(answer.entries), std::move(answer.error));
}

void FileRequestHandler::getAclAccessWithUrl(
    NSURL url, NSUUID uuid,
    NSXPCReply<std::vector<std::shared_ptr<MVTreeNode>>, NSErrorRef> reply) {
    auto answer = aclAccessOfUrl(url, uuid, rule_);
    reply(std::move(answer.permissions), std::move(answer.error));
}

void FileRequestHandler::setAclEntries(std::vector<std::shared_ptr<MVAclEntry>> entries, NSURL url,
                                       NSXPCReply<NSErrorRef> reply) {
    reply(setAclEntriesOfUrl(entries, url, rule_));
}

void FileRequestHandler::propagateAclEntries(std::vector<std::shared_ptr<MVAclEntry>> entries,
                                             NSURL url, NSXPCReply<NSErrorRef> reply) {
    longWork_->async([client = client_, rule = rule_, entries = std::move(entries),
                      url = std::move(url), reply = std::move(reply)] {
        reply(propagateAclEntriesBelow(entries, url, client, rule));
    });
}

void FileRequestHandler::renameUrls(
    std::vector<NSURL> urls, std::vector<std::string> names,
    NSXPCReply<std::vector<NSURL>, std::vector<std::int64_t>, NSErrorRef> reply) {
    longWork_->async(
        [rule = rule_, urls = std::move(urls), names = std::move(names), reply = std::move(reply)] {
            auto answer = renameUrlsTo(urls, names, rule);
            reply(std::move(answer.urls), std::move(answer.codes), std::move(answer.error));
        });
}

void FileRequestHandler::getSizesWithUrls(
    std::vector<NSURL> urls,
    NSXPCReply<std::vector<std::shared_ptr<MVFileSizeItem>>, NSErrorRef> reply) {
    longWork_->async(
        [client = client_, rule = rule_, urls = std::move(urls), reply = std::move(reply)] {
            auto answer = sizesOfUrls(urls, client, rule);
            reply(std::move(answer.sizes), std::move(answer.error));
        });
}

void FileRequestHandler::getContentsOfDirectory(NSURL directory, NSIndexPath,
                                                NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) {
    longWork_->async([rule = rule_, directory = std::move(directory), reply = std::move(reply)] {
        auto answer = contentsOfDirectory(directory, rule);
        reply(std::move(answer.contents), std::move(answer.error));
    });
}

}  // namespace morvane
