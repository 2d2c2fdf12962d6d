// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>

#include "EveryMessage.h"

/// The sizes of "/N" are N bytes so far, and again and again, until the client says no; so long a
/// list is propagated, too, to 2345 items so far, or to "/refused", which refuses it. Lists and
/// folders are empty, and answered at once.
namespace {

using namespace morvane;

class Sum : public std::enable_shared_from_this<Sum> {
  public:
    using Reply = NSXPCReply<std::vector<std::shared_ptr<MVFileSizeItem>>, NSErrorRef>;
    Sum(std::shared_ptr<NSXPCConnection> client, const NSURL& url, Reply reply)
        : client_(std::move(client)),
          bytes_(std::atoll(url.path().c_str() + 1)),
          reply_(std::move(reply)) {}

    void ask() {
        client_
            ->remoteObjectProxyWithErrorHandler<MVCountedResponse>(
                [self = shared_from_this()](NSErrorRef) {})
            ->updateFileSizes(
                {MVFileSizeItem::initWithSize(bytes_)}, [self = shared_from_this()](bool goesOn) {
                    if (goesOn)
                        return self->ask();
                    self->reply_({MVFileSizeItem::initWithSize(self->bytes_)},
                                 NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED));
                });
    }

  private:
    const std::shared_ptr<NSXPCConnection> client_;
    const std::int64_t bytes_;
    const Reply reply_;
};

class Propagation : public std::enable_shared_from_this<Propagation> {
  public:
    Propagation(std::shared_ptr<NSXPCConnection> client, NSURL url, NSXPCReply<NSErrorRef> reply)
        : client_(std::move(client)), url_(std::move(url)), reply_(std::move(reply)) {
        if (url_.path() == "/refused")
            counts_ = {.done = 0, .failed = 1};
    }

    void ask() {
        const auto client = client_->remoteObjectProxyWithErrorHandler<MVCountedResponse>(
            [self = shared_from_this()](NSErrorRef) {});
        client->updateItemCounts(static_cast<std::int64_t>(counts_.done),
                                 static_cast<std::int64_t>(counts_.failed), [](bool) {});
        client->progressWithReply([self = shared_from_this()](bool goesOn) {
            if (goesOn)
                return self->ask();
            auto error = NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED);
            if (self->counts_.failed != 0) {
                const auto refused = NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES,
                                                              {{NSURLErrorKey, self->url_}});
                error = errorWithFailures(error, {{refused}, self->counts_});
            }
            self->reply_(std::move(error));
        });
    }

  private:
    const std::shared_ptr<NSXPCConnection> client_;
    const NSURL url_;
    const NSXPCReply<NSErrorRef> reply_;
    MVItemCounts counts_{.done = 2345, .failed = 0};
};

class AskingService final : public UnansweredRequests {
  public:
    explicit AskingService(std::weak_ptr<NSXPCConnection> client) : client_(std::move(client)) {}

    void getSizesWithUrls(std::vector<NSURL> urls, Sum::Reply reply) override {
        if (const auto client = client_.lock())
            std::make_shared<Sum>(client, urls.at(0), std::move(reply))->ask();
    }
    void propagateAclEntries(std::vector<std::shared_ptr<MVAclEntry>>, NSURL url,
                             NSXPCReply<NSErrorRef> reply) override {
        if (const auto client = client_.lock())
            std::make_shared<Propagation>(client, std::move(url), std::move(reply))->ask();
    }
    void getAclEntriesWithUrl(
        NSURL, NSXPCReply<std::vector<std::shared_ptr<MVAclEntry>>, NSErrorRef> reply) override {
        reply({}, nullptr);
    }
    void getContentsOfDirectory(NSURL, NSIndexPath,
                                NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) override {
        reply({}, nullptr);
    }

  private:
    const std::weak_ptr<NSXPCConnection> client_;
};

}  // namespace

int main() {
    const auto listener = NSXPCListener::serviceListener();
    if (!listener)
        return 1;
    listener->setNewConnectionHandler([](const std::shared_ptr<NSXPCConnection>& connection) {
        const auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
        requests->setClasses({&NSArrayClass, &NSURLClass}, "getSizesWithUrls:reply:", 0, false);
        requests->setClasses({&NSArrayClass, &MVAclEntry::classObject()},
                             "propagateAclEntries:url:reply:", 0, false);
        connection->setExportedInterface(requests);
        connection->setExportedObject<MVFileRequest>(std::make_shared<AskingService>(connection));
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol<MVCountedResponse>());
        connection->resume();
        return true;
    });
    return listener->run();
}
