// SPDX-License-Identifier: MIT
#include "FileRequestHandler.h"

#include <MorvaneOperation/MVItemProgress.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <utility>

#include "AclRequests.h"
#include "DirectoryRequests.h"
#include "PropagateRequests.h"
#include "RenameRequests.h"
#include "SizeRequests.h"
#include "WorkErrors.h"

namespace morvane {
namespace {

/// Returns the arguments of the reply: a value, which is empty after a failure, and an error, which
/// is null otherwise.
template <class T>
std::tuple<T, NSErrorRef> asReply(Result<T> result) {
    if (!result)
        return {T(), result.error()};
    return {*std::move(result), nullptr};
}

/// Renaming more items than this counts as long work.
constexpr std::size_t itemsRenamedAtOnce = 64;

}  // namespace

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
    client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<MVCountedResponse>());
}

void FileRequestHandler::serve(const std::shared_ptr<NSXPCConnection>& client) {
    configure(client);
    client->setExportedObject<MVFileRequest>(std::make_shared<FileRequestHandler>(client));
}

std::shared_ptr<FileRequestHandler> FileRequestHandler::forPrivilegedClient(
    const std::shared_ptr<NSXPCConnection>& client) {
    return std::make_shared<FileRequestHandler>(
        client, PathRule{static_cast<std::uint32_t>(client->effectiveUserIdentifier().value()),
                         static_cast<std::uint32_t>(client->accountableUserIdentifier().value())});
}

FileRequestHandler::FileRequestHandler(std::weak_ptr<NSXPCConnection> client, PathRule rule)
    : client_(std::move(client)),
      rule_(rule),
      asked_{client_, userOfRule(rule)},
      owner_{rule.onBehalfOf ? std::int64_t{userOfRule(rule)} : 0, this},
      writes_(std::make_shared<WriteOrder>([owner = owner_](std::function<void()> write) {
          LongWork::run(LongWork::shared(), owner, std::move(write));
      })) {}

void FileRequestHandler::getAclEntriesWithUrl(
    NSURL url, NSXPCReply<std::vector<std::shared_ptr<MVAclEntry>>, NSErrorRef> reply) {
    answerWhileAsking(asked_, url, reply,
                      [&](const auto&) { return asReply(aclEntriesOfUrl(url, rule_)); });
}

void FileRequestHandler::getAclAccessWithUrl(
    NSURL url, NSUUID uuid,
    NSXPCReply<std::vector<std::shared_ptr<MVTreeNode>>, NSErrorRef> reply) {
    answerWhileAsking(asked_, url, reply,
                      [&](const auto&) { return asReply(aclAccessOfUrl(url, uuid, rule_)); });
}

void FileRequestHandler::setAclEntries(std::vector<std::shared_ptr<MVAclEntry>> entries, NSURL url,
                                       NSXPCReply<NSErrorRef> reply) {
    WriteOrder::Paths paths{url.path()};
    WriteOrder::begin(writes_, std::move(paths),
                      [client = asked_, rule = rule_, entries = std::move(entries),
                       url = std::move(url), reply = std::move(reply)](WriteOrder::Token token) {
                          answerWhileAsking(
                              client, url, reply,
                              [&](const std::function<bool()>& goesOn) {
                                  return std::tuple(setAclEntriesOfUrl(entries, url, rule, goesOn));
                              },
                              {}, std::move(token));
                      });
}

void FileRequestHandler::propagateAclEntries(std::vector<std::shared_ptr<MVAclEntry>> entries,
                                             NSURL url, NSXPCReply<NSErrorRef> reply) {
    WriteOrder::Paths paths{url.path()};
    WriteOrder::begin(writes_, std::move(paths),
                      [owner = owner_, client = client_, rule = rule_, entries = std::move(entries),
                       url = std::move(url), reply = std::move(reply)](WriteOrder::Token token) {
                          LongWork::run(
                              LongWork::shared(), owner,
                              [client, rule, entries, url, reply, token = std::move(token)] {
                                  reply(propagateAclEntriesBelow(entries, url, client, rule));
                              });
                      });
}

void FileRequestHandler::renameUrls(
    std::vector<NSURL> urls, std::vector<std::string> names,
    NSXPCReply<std::vector<NSURL>, std::vector<std::int64_t>, NSErrorRef> reply) {
    // Old and new names are in the same folders, of which there are few.
    WriteOrder::Paths folders;
    for (const auto& url : urls)
        folders.insert(url.path().substr(0, std::max<std::size_t>(url.path().rfind('/'), 1)));
    const bool isLong = urls.size() > itemsRenamedAtOnce;
    WriteOrder::begin(
        writes_, std::move(folders),
        [isLong, owner = owner_, client = asked_, rule = rule_, urls = std::move(urls),
         names = std::move(names), reply = std::move(reply)](WriteOrder::Token token) {
            auto rename = [client, rule, urls, names, reply, token = std::move(token)]() mutable {
                const auto first = urls.empty() ? NSURL::fileURLWithPath("/") : urls.front();
                answerWhileAsking(
                    client, first, reply,
                    [&](const std::function<bool()>& goesOn) {
                        auto answer = renameUrlsTo(urls, names, rule, systemRename, goesOn);
                        return std::tuple(std::move(answer.urls), std::move(answer.codes),
                                          std::move(answer.error));
                    },
                    std::tuple(urls, std::vector<std::int64_t>(urls.size(), ECANCELED),
                               NSErrorRef()),
                    std::move(token));
            };
            if (isLong)
                LongWork::run(LongWork::shared(), owner, std::move(rename));
            else
                rename();
        });
}

void FileRequestHandler::getSizesWithUrls(
    std::vector<NSURL> urls,
    NSXPCReply<std::vector<std::shared_ptr<MVFileSizeItem>>, NSErrorRef> reply) {
    LongWork::run(
        LongWork::shared(), owner_,
        [client = client_, rule = rule_, urls = std::move(urls), reply = std::move(reply)] {
            auto answer = sizesOfUrls(urls, client, rule);
            reply(std::move(answer.sizes), std::move(answer.error));
        });
}

void FileRequestHandler::getContentsOfDirectory(NSURL directory, NSIndexPath,
                                                NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) {
    answerWhileAsking(asked_, directory, reply, [&](const std::function<bool()>& goesOn) {
        return asReply(contentsOfDirectory(directory, rule_, limits::messageSize, goesOn));
    });
}

}  // namespace morvane
