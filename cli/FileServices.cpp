// SPDX-License-Identifier: MIT
#include "FileServices.h"

#include <MorvaneOperation/MVOperationError.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <stop_token>
#include <type_traits>
#include <utility>

namespace morvane {

namespace {

/// Obtains the right and a connection to the helper; an error if either cannot be had.
NSErrorRef connectPrivileged(MVFileConnector& connector, const char* right) {
    std::promise<NSErrorRef> connected;
    connector.getAuthConnectionForRight(right,
                                        [&](NSErrorRef error) { connected.set_value(error); });
    auto error = connected.get_future().get();
    if (!error && !connector.authConnection())
        error = NSError::errorWithDescription(
            NSPOSIXErrorDomain, EACCES,
            phrase("The rights of this program are not defined on this system, and only root may "
                   "define them."),
            phrase("Run '%1' as root; it lets polkit know them from '%2'.", MORVANE_INSTALLER,
                   MORVANE_POLICY));
    return error;
}

/// Makes the result that is waited for of the values of a reply, of which the last is the error.
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

/// Whether there is a service which did not send its reply.
bool isRefusedReply(const NSError& error) {
    return error.domain() == NSCocoaErrorDomain && error.code() == NSXPCConnectionReplyInvalid;
}

/// How soon Ctrl-C is noticed while an answer is waited for.
constexpr std::chrono::milliseconds lookInterval{50};

/// The answer to one request, which comes on another thread.
template <class T>
class Answer {
  public:
    /// The reply handler, which stores the values that came.
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
    void set(T value) const { promise_->set_value(std::move(value)); }
    T wait() const { return promise_->get_future().get(); }
    /// Does the same, but returns the error ECANCELED once `goesOn` has said no.
    T wait(const std::function<bool()>& goesOn) const {
        auto future = promise_->get_future();
        while (future.wait_for(lookInterval) != std::future_status::ready) {
            if (!goesOn())
                return Failure{NSError::errorWithDomain(NSPOSIXErrorDomain, ECANCELED)};
        }
        return future.get();
    }

  private:
    const std::shared_ptr<std::promise<T>> promise_ = std::make_shared<std::promise<T>>();
};

}  // namespace

FileServices::FileServices(const char* queueLabel)
    : connector_(MVConnector::initWithQueueLabel<MVFileConnector>(queueLabel)) {}

std::shared_ptr<NSXPCConnection> FileServices::connectionFor(const char* right, NSErrorRef& error) {
    if (!privileged_)
        return connector_->connection();
    error = connectPrivileged(*connector_, right);
    return error ? nullptr : connector_->authConnection();
}

std::shared_ptr<MVFileRequest> FileServices::serviceOn(NSXPCConnection& connection,
                                                       std::function<void(NSErrorRef)> fail) const {
    return connection.remoteObjectProxyWithErrorHandler<MVFileRequest>(
        [fail = std::move(fail), privileged = privileged_](NSErrorRef error) {
            fail(privileged ? errorWithAdviceAboutHelper(std::move(error)) : std::move(error));
        });
}

std::shared_ptr<MVFileRequest> FileServices::serviceFor(const char* right,
                                                        std::function<void(NSErrorRef)> fail) {
    NSErrorRef error;
    const auto connection = connectionFor(right, error);
    if (!connection) {
        fail(std::move(error));
        return nullptr;
    }
    return serviceOn(*connection, std::move(fail));
}

template <class T, class Send>
std::vector<Result<T>> FileServices::askAll(const char* right, std::size_t count,
                                            const std::function<bool()>& goesOn, Send send) {
    NSErrorRef error;
    const auto connection = connectionFor(right, error);
    const std::vector<Answer<Result<T>>> answers(connection ? count : 0);
    for (std::size_t i = 0; i != answers.size(); ++i)
        send(*serviceOn(*connection, answers[i].ofFailure()), i, answers[i].ofReply());
    std::vector<Result<T>> results;
    for (const auto& answer : answers)
        results.push_back(answer.wait(goesOn));
    // Of large replies only so many may wait to be taken. By itself each is answered.
    for (std::size_t i = 0; i != results.size() && goesOn(); ++i) {
        if (results[i] || !isRefusedReply(*results[i].error()))
            continue;
        const Answer<Result<T>> again;
        send(*serviceOn(*connection, again.ofFailure()), i, again.ofReply());
        results[i] = again.wait(goesOn);
    }
    while (results.size() != count)
        results.emplace_back(Failure{error});
    return results;
}

// Either the reply or the error handler of a request runs, exactly once.

Result<EntryList> FileServices::aclEntries(const NSURL& url) {
    const Answer<Result<EntryList>> answer;
    if (const auto service = serviceFor(MVRightGetFileAcl, answer.ofFailure()))
        service->getAclEntriesWithUrl(url, answer.ofReply());
    return answer.wait();
}

std::vector<Result<EntryList>> FileServices::aclEntriesOfAll(const std::vector<NSURL>& urls,
                                                             const std::function<bool()>& goesOn) {
    return askAll<EntryList>(MVRightGetFileAcl, urls.size(), goesOn,
                             [&](MVFileRequest& service, std::size_t i, auto reply) {
                                 service.getAclEntriesWithUrl(urls[i], std::move(reply));
                             });
}

NSErrorRef FileServices::setAclEntries(const EntryList& entries, const NSURL& url) {
    const Answer<NSErrorRef> answer;
    if (const auto service = serviceFor(MVRightSetFileAcl, answer.ofFailure()))
        service->setAclEntries(entries, url, answer.ofReply());
    return answer.wait();
}

Result<PermissionList> FileServices::access(const NSURL& url, const NSUUID& who) {
    const Answer<Result<PermissionList>> answer;
    if (const auto service = serviceFor(MVRightGetFileAccess, answer.ofFailure()))
        service->getAclAccessWithUrl(url, who, answer.ofReply());
    return answer.wait();
}

std::vector<Result<PermissionList>> FileServices::accessOfAll(const NSURL& url,
                                                              const std::vector<NSUUID>& whom,
                                                              const std::function<bool()>& goesOn) {
    return askAll<PermissionList>(MVRightGetFileAccess, whom.size(), goesOn,
                                  [&](MVFileRequest& service, std::size_t i, auto reply) {
                                      service.getAclAccessWithUrl(url, whom[i], std::move(reply));
                                  });
}

std::optional<std::vector<CBIdentityRef>> FileServices::identities(
    const std::function<bool()>& goesOn) {
    using Identities = Result<std::vector<CBIdentityRef>>;
    // A directory on the network may be slow, or not answer.
    constexpr std::chrono::seconds patience{10};
    const Answer<Identities> answer;
    const auto client = MVFileClient::init([](std::function<void()> task) { task(); });
    std::stop_source stop;
    const auto until = std::chrono::steady_clock::now() + patience;
    client->identities("", {.stop = stop.get_token()},
                       [answer](Identities found) { answer.set(std::move(found)); });
    auto found = answer.wait([&] { return std::chrono::steady_clock::now() < until && goesOn(); });
    stop.request_stop();
    if (!found)
        return std::nullopt;
    return *std::move(found);
}

MVFileSizes FileServices::sizes(const std::vector<NSURL>& urls, SizeProgress progress) {
    connector_->setProgressHandler(std::move(progress));
    const Answer<MVFileSizes> answer;
    if (const auto service = serviceFor(MVRightGetFileSize, answer.ofFailure()))
        service->getSizesWithUrls(urls, answer.ofReply());
    auto result = answer.wait();
    connector_->setProgressHandler({});
    return result;
}

Result<std::vector<NSURL>> FileServices::contents(const NSURL& directory) {
    const Answer<Result<std::vector<NSURL>>> answer;
    if (const auto service = serviceFor(MVRightGetFileSize, answer.ofFailure()))
        service->getContentsOfDirectory(directory, {}, answer.ofReply());
    return answer.wait();
}

MVFileRenames FileServices::rename(const std::vector<NSURL>& urls,
                                   const std::vector<std::string>& names) {
    const Answer<MVFileRenames> answer;
    if (const auto service = serviceFor(MVRightRenameFiles, answer.ofFailure()))
        service->renameUrls(urls, names, answer.ofReply());
    return answer.wait();
}

Propagated FileServices::propagateAclEntries(const EntryList& entries, const NSURL& url,
                                             std::function<bool(const MVItemCounts&)> goesOn) {
    // One thread brings counts, questions and the answer, in this order.
    const auto counts = std::make_shared<std::optional<MVItemCounts>>();
    connector_->setCountHandler([counts](const MVItemCounts& now) {
        *counts = now;
        return true;
    });
    connector_->setProgressHandler([counts, goesOn = std::move(goesOn)](const SizeList&) {
        return goesOn(counts->value_or(MVItemCounts()));
    });
    const Answer<NSErrorRef> answer;
    if (const auto service = serviceFor(MVRightPropagateFileAcl, answer.ofFailure()))
        service->propagateAclEntries(entries, url, answer.ofReply());
    auto error = answer.wait();
    connector_->setProgressHandler({});
    connector_->setCountHandler({});
    return {std::move(error), *counts};
}

}  // namespace morvane
