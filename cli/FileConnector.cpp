// SPDX-License-Identifier: MIT
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

/// What a reply's values, of which the error is the last, are to whoever waits.
template <class T>
struct FromReply {
    template <class... Values>
    static T made(Values&&... values) {
        return T{std::forward<Values>(values)...};
    }
};
template <class T>
struct FromReply<Result<T>> {
    static Result<T> made(T value, NSErrorRef error) {
        if (error)
            return Failure{std::move(error)};
        return value;
    }
};

/// The answer to one request, which comes on another thread.
template <class T>
class Answer {
  public:
    /// The reply that puts the values that came into the answer.
    auto ofReply() const {
        return [promise = promise_](auto... values) {
            promise->set_value(FromReply<T>::made(std::move(values)...));
        };
    }
    std::function<void(NSErrorRef)> ofFailure() const {
        return [promise = promise_](NSErrorRef error) {
            if constexpr (std::is_constructible_v<T, Failure<NSErrorRef>>) {
                promise->set_value(Failure{std::move(error)});
            } else if constexpr (std::is_same_v<T, NSErrorRef>) {
                promise->set_value(std::move(error));
            } else {
                T failed;
                failed.error = std::move(error);
                promise->set_value(std::move(failed));
            }
        };
    }
    T wait() const { return promise_->get_future().get(); }

  private:
    const std::shared_ptr<std::promise<T>> promise_ = std::make_shared<std::promise<T>>();
};

}  // namespace

std::shared_ptr<MVFileRequest> FileConnector::serviceOrTell(const char* right,
                                                            std::function<void(NSErrorRef)> fail) {
    if (privileged_) {
        if (auto error = connectPrivileged(*this, right)) {
            fail(std::move(error));
            return nullptr;
        }
    }
    const auto held = privileged_ ? authConnection() : connection();
    return held->template remoteObjectProxyWithErrorHandler<MVFileRequest>(
        [fail = std::move(fail), privileged = privileged_](NSErrorRef error) {
            fail(privileged ? withAdviceAboutHelper(std::move(error)) : std::move(error));
        });
}

// Of the reply and the error handler of a request one runs, once.

Result<EntryList> FileConnector::aclEntries(const NSURL& url) {
    const Answer<Result<EntryList>> answer;
    if (const auto service = serviceOrTell(MVRightGetFileAcl, answer.ofFailure()))
        service->getAclEntriesWithUrl(url, answer.ofReply());
    return answer.wait();
}

NSErrorRef FileConnector::setAclEntries(const EntryList& entries, const NSURL& url) {
    const Answer<NSErrorRef> answer;
    if (const auto service = serviceOrTell(MVRightSetFileAcl, answer.ofFailure()))
        service->setAclEntries(entries, url, answer.ofReply());
    return answer.wait();
}

Result<PermissionList> FileConnector::access(const NSURL& url, const NSUUID& who) {
    const Answer<Result<PermissionList>> answer;
    if (const auto service = serviceOrTell(MVRightGetFileAccess, answer.ofFailure()))
        service->getAclAccessWithUrl(url, who, answer.ofReply());
    return answer.wait();
}

SizesReply FileConnector::sizes(const std::vector<NSURL>& urls, SizeProgress progress) {
    {
        const std::lock_guard lock(mutex_);
        progress_ = std::move(progress);
    }
    const Answer<SizesReply> answer;
    if (const auto service = serviceOrTell(MVRightGetFileSize, answer.ofFailure()))
        service->getSizesWithUrls(urls, answer.ofReply());
    auto result = answer.wait();
    const std::lock_guard lock(mutex_);
    progress_ = {};
    return result;
}

Result<std::vector<NSURL>> FileConnector::contents(const NSURL& directory) {
    const Answer<Result<std::vector<NSURL>>> answer;
    if (const auto service = serviceOrTell(MVRightGetFileSize, answer.ofFailure()))
        service->getContentsOfDirectory(directory, {}, answer.ofReply());
    return answer.wait();
}

RenamesAnswer FileConnector::rename(const std::vector<NSURL>& urls,
                                    const std::vector<std::string>& names) {
    const Answer<RenamesAnswer> answer;
    if (const auto service = serviceOrTell(MVRightRenameFiles, answer.ofFailure()))
        service->renameUrls(urls, names, answer.ofReply());
    return answer.wait();
}

NSErrorRef FileConnector::propagateAclEntries(const EntryList& entries, const NSURL& url,
                                              std::function<bool()> goesOn) {
    {
        const std::lock_guard lock(mutex_);
        progress_ = [goesOn = std::move(goesOn)](const SizeList&) { return goesOn(); };
    }
    const Answer<NSErrorRef> answer;
    if (const auto service = serviceOrTell(MVRightPropagateFileAcl, answer.ofFailure()))
        service->propagateAclEntries(entries, url, answer.ofReply());
    auto error = answer.wait();
    const std::lock_guard lock(mutex_);
    progress_ = {};
    return error;
}

}  // namespace morvane
