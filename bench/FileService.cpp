// SPDX-License-Identifier: MIT
#include "FileService.h"

#include <MorvaneOperation/MVFileResponse.h>

#include <cstdlib>
#include <future>
#include <stdexcept>

namespace bench {
namespace {

using namespace morvane;
using Sizes = std::vector<std::shared_ptr<MVFileSizeItem>>;

/// The host's end: lets the work go on.
class Response final : public MVFileResponse {
  public:
    void progressWithReply(NSXPCReply<bool> reply) override { reply(true); }
    void updateFileSizes(Sizes, NSXPCReply<bool> reply) override { reply(true); }
};

std::exception_ptr asException(const NSErrorRef& error) {
    return std::make_exception_ptr(std::runtime_error(error->localizedDescription()));
}

/// Sends what `send` does with a proxy and with the promise of its answer.
template <class Answer, class Send>
Answer answerTo(NSXPCConnection& connection, Send send) {
    std::promise<Answer> answer;
    send(*connection.remoteObjectProxyWithErrorHandler<MVFileRequest>(
             [&](const NSErrorRef& error) { answer.set_exception(asException(error)); }),
         answer);
    return answer.get_future().get();
}

}  // namespace

FileService::FileService(Kind kind) {
    setenv("MORVANE_LIBEXEC_DIR", MORVANE_LIBEXEC, 1);
    connection_ = kind == Kind::own ? NSXPCConnection::initWithServiceName(MVFileServiceName)
                                    : NSXPCConnection::initWithMachServiceName(
                                          MVPrivilegedHelperName, NSXPCConnectionPrivileged);
    const NSClassSet sizes{&NSArrayClass, &MVFileSizeItem::classObject()};
    const NSClassSet entries{&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
                             &MVAclPermission::classObject()};
    auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    requests->setClasses(sizes, "getSizesWithUrls:reply:", 0, true);
    requests->setClasses(entries, "getAclEntriesWithUrl:reply:", 0, true);
    requests->setClasses({&NSArrayClass, &NSURLClass}, "renameUrls:names:reply:", 0, true);
    auto responses = NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
    responses->setClasses(sizes, "updateFileSizes:reply:", 0, false);
    connection_->setRemoteObjectInterface(requests);
    connection_->setExportedInterface(responses);
    connection_->setExportedObject<MVFileResponse>(std::make_shared<Response>());
    connection_->resume();
}

std::int64_t FileService::processIdentifier() const {
    return connection_->processIdentifier().value();
}

FileService::~FileService() {
    connection_->invalidate();
}

std::int64_t FileService::sizeOf(const std::string& path) {
    return answerTo<std::int64_t>(*connection_, [&](auto& service, auto& answer) {
        service.getSizesWithUrls({NSURL::fileURLWithPath(path)},
                                 [&](const Sizes& sizes, NSErrorRef error) {
                                     error ? answer.set_exception(asException(error))
                                           : answer.set_value(sizes.at(0)->size());
                                 });
    });
}

FileService::Entries FileService::aclOf(const std::string& path) {
    return answerTo<Entries>(*connection_, [&](auto& service, auto& answer) {
        service.getAclEntriesWithUrl(NSURL::fileURLWithPath(path), [&](Entries entries,
                                                                       NSErrorRef error) {
            error ? answer.set_exception(asException(error)) : answer.set_value(std::move(entries));
        });
    });
}

void FileService::propagate(const Entries& entries, const std::string& path) {
    answerTo<void>(*connection_, [&](auto& service, auto& answer) {
        service.propagateAclEntries(entries, NSURL::fileURLWithPath(path), [&](NSErrorRef error) {
            error ? answer.set_exception(asException(error)) : answer.set_value();
        });
    });
}

void FileService::rename(const std::vector<NSURL>& urls, const std::vector<std::string>& names) {
    answerTo<void>(*connection_, [&](auto& service, auto& answer) {
        service.renameUrls(
            urls, names,
            [&](const std::vector<NSURL>&, const std::vector<std::int64_t>&, NSErrorRef error) {
                error ? answer.set_exception(asException(error)) : answer.set_value();
            });
    });
}

}  // namespace bench
