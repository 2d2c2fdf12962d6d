#include "FileConnector.h"

#include <cerrno>
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
            {"renameUrls:names:reply:", {&NSArrayClass, &NSURLClass}},
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

/// Obtains the right and a connection to the helper; an error if either cannot be had.
NSErrorRef connectPrivileged(FileConnector& connector, const char* right) {
    std::promise<NSErrorRef> connected;
    connector.getAuthConnectionForRight(right,
                                        [&](NSErrorRef error) { connected.set_value(error); });
    auto error = connected.get_future().get();
    if (!error && !connector.authConnection())
        error = NSError::errorWithDomain(
            NSPOSIXErrorDomain, EACCES,
            {{NSLocalizedDescriptionKey,
              std::string("The rights of this program are not defined on this system, and only "
                          "root may define them.")},
             {NSLocalizedRecoverySuggestionErrorKey,
              std::string("Run '" MORVANE_INSTALLER "' as root; it lets polkit know them from "
                          "'" MORVANE_POLICY "'.")}});
    return error;
}

/// What went wrong with the connection to the helper, with where to look for why; any other error
/// as it is.
NSErrorRef withAdviceAboutHelper(NSErrorRef error) {
    if (error->domain() != NSCocoaErrorDomain)
        return error;
    const std::string look =
        std::string("'systemctl status ") + MVPrivilegedHelperName + ".service' tells why.";
    auto userInfo = error->userInfo();
    if (error->code() == NSXPCConnectionInvalid) {
        userInfo.try_emplace(NSLocalizedRecoverySuggestionErrorKey,
                             "Try again; the helper is then looked after. " + look);
    } else if (error->code() == NSXPCConnectionInterrupted) {
        userInfo.try_emplace(NSUnderlyingErrorKey,
                             NSError::errorWithDomain(error->domain(), error->code(),
                                                      {{NSLocalizedDescriptionKey,
                                                        "If the helper has failed, " + look}}));
    }
    return NSError::errorWithDomain(error->domain(), error->code(), std::move(userInfo));
}

}  // namespace

template <class Answer>
std::shared_ptr<MVFileRequest> FileConnector::serviceAnswering(
    const char* right, std::shared_ptr<std::promise<Answer>> answer) {
    if (privileged_) {
        if (auto error = connectPrivileged(*this, right)) {
            answer->set_value({{}, std::move(error)});
            return nullptr;
        }
    }
    const auto held = privileged_ ? authConnection() : connection();
    return held->template remoteObjectProxyWithErrorHandler<MVFileRequest>(
        [answer, privileged = privileged_](NSErrorRef error) {
            answer->set_value(
                {{}, privileged ? withAdviceAboutHelper(std::move(error)) : std::move(error)});
        });
}

// Of the reply and the error handler of a request one runs, once.

AclAnswer FileConnector::aclEntries(const NSURL& url) {
    const auto answer = std::make_shared<std::promise<AclAnswer>>();
    if (const auto service = serviceAnswering(MVRightGetFileAcl, answer))
        service->getAclEntriesWithUrl(url, [answer](EntryList entries, NSErrorRef error) {
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
    if (const auto service = serviceAnswering(MVRightSetFileAcl, answer))
        service->setAclEntries(entries, url, [answer](NSErrorRef error) {
            answer->set_value({{}, std::move(error)});
        });
    return answer->get_future().get().error;
}

AccessAnswer FileConnector::access(const NSURL& url, const NSUUID& who) {
    const auto answer = std::make_shared<std::promise<AccessAnswer>>();
    if (const auto service = serviceAnswering(MVRightGetFileAccess, answer))
        service->getAclAccessWithUrl(
            url, who,
            [answer](std::vector<std::shared_ptr<MVTreeNode>> permissions, NSErrorRef error) {
                answer->set_value({std::move(permissions), std::move(error)});
            });
    return answer->get_future().get();
}

SizesReply FileConnector::sizes(const std::vector<NSURL>& urls, SizeProgress progress) {
    {
        const std::lock_guard lock(mutex_);
        progress_ = std::move(progress);
    }
    const auto answer = std::make_shared<std::promise<SizesReply>>();
    if (const auto service = serviceAnswering(MVRightGetFileSize, answer))
        service->getSizesWithUrls(urls, [answer](SizeList sizes, NSErrorRef error) {
            answer->set_value({std::move(sizes), std::move(error)});
        });
    auto result = answer->get_future().get();
    const std::lock_guard lock(mutex_);
    progress_ = {};
    return result;
}

ContentsAnswer FileConnector::contents(const NSURL& directory) {
    const auto answer = std::make_shared<std::promise<ContentsAnswer>>();
    if (const auto service = serviceAnswering(MVRightGetFileSize, answer))
        service->getContentsOfDirectory(directory, {},
                                        [answer](std::vector<NSURL> urls, NSErrorRef error) {
                                            answer->set_value({std::move(urls), std::move(error)});
                                        });
    return answer->get_future().get();
}

RenamesAnswer FileConnector::rename(const std::vector<NSURL>& urls,
                                    const std::vector<std::string>& names) {
    struct Answer {
        RenamesAnswer renamed;
        NSErrorRef error;
    };
    const auto answer = std::make_shared<std::promise<Answer>>();
    if (const auto service = serviceAnswering(MVRightRenameFiles, answer))
        service->renameUrls(
            urls, names,
            [answer](std::vector<NSURL> now, std::vector<std::int64_t> codes, NSErrorRef error) {
                answer->set_value({{std::move(now), std::move(codes), {}}, std::move(error)});
            });
    auto [renamed, error] = answer->get_future().get();
    renamed.error = std::move(error);
    return renamed;
}

NSErrorRef FileConnector::propagateAclEntries(const EntryList& entries, const NSURL& url,
                                              std::function<bool()> goesOn) {
    {
        const std::lock_guard lock(mutex_);
        progress_ = [goesOn = std::move(goesOn)](const SizeList&) { return goesOn(); };
    }
    struct Answer {
        std::monostate nothing;
        NSErrorRef error;
    };
    const auto answer = std::make_shared<std::promise<Answer>>();
    if (const auto service = serviceAnswering(MVRightPropagateFileAcl, answer))
        service->propagateAclEntries(entries, url, [answer](NSErrorRef error) {
            answer->set_value({{}, std::move(error)});
        });
    auto error = answer->get_future().get().error;
    const std::lock_guard lock(mutex_);
    progress_ = {};
    return error;
}

}  // namespace morvane
