// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/MVOperationError.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>
#include <vector>

#include "ClientAuthority.h"
#include "ClientLanes.h"
#include "IdentitySearch.h"

namespace morvane {

/// The exception that is being handled, as an error.
NSErrorRef errorOfFailure(const std::exception_ptr& failure);
/// The error of an operation that was cancelled before its request was sent.
NSErrorRef cancellation();

/// The parts that the operations of a client share. They last as long as one of these does.
class MVFileClient::State {
  public:
    State(Executor executor, ConnectorMaker maker);

    const Executor executor;
    const std::shared_ptr<ClientAuthority> authority = std::make_shared<ClientAuthority>();
    const std::shared_ptr<ClientLanes> lanes;
    const std::shared_ptr<ClientLanes> privilegedLanes;
    /// Runs operations that need no service.
    const std::shared_ptr<DispatchQueue> work = DispatchQueue::serialQueue(nullptr);
    const std::shared_ptr<IdentitySearch> people = std::make_shared<IdentitySearch>();
    /// Looks up the names that lists do not wait for.
    const std::shared_ptr<DispatchQueue> names = DispatchQueue::serialQueue(nullptr);

    void add(const std::shared_ptr<ClientOperation>& operation);
    void cancelAll();

  private:
    std::mutex mutex_;
    std::vector<std::weak_ptr<ClientOperation>> running_;
    std::size_t mostRunning_ = 0;
};

/// One operation from its call to its completion: it waits (for a connector, for a right), its
/// request is sent, perhaps it waits again to repeat it with privileges, and it ends.
class ClientOperation : public std::enable_shared_from_this<ClientOperation> {
  public:
    ClientOperation(std::shared_ptr<MVFileClient::State> client, MVOperationOptions options,
                    const char* right, bool isLong);
    virtual ~ClientOperation() = default;
    ClientOperation(const ClientOperation&) = delete;
    ClientOperation& operator=(const ClientOperation&) = delete;

    bool isLong() const { return isLong_; }
    /// Returns whether its request is still to be sent.
    bool isWaiting() const;
    /// Begins the operation; returns at once.
    void start();
    /// Ends the operation if it waits, and has the service stop otherwise. May be called on any
    /// thread.
    void cancel();
    /// Has the request sent on another thread, by the connector that the operation has now.
    void run(const std::shared_ptr<ClientLane>& lane);
    /// Ends the operation with the exception that is being handled.
    void failWith(const std::exception_ptr& failure);

  protected:
    /// Has the executor call the completion with `error`.
    virtual void complete(NSErrorRef error) = 0;
    /// Sends the request. Its reply or error arrives in answered() or failed().
    virtual void send(NSXPCConnection& connection, bool privileged,
                      std::shared_ptr<ClientLane> lane) = 0;

    /// Ends the operation with `error`.
    void fail(NSErrorRef error);
    /// Returns true to its first caller, who then calls the completion.
    bool end();
    /// Returns whether a request that was refused is to be sent to the helper.
    bool mayRepeat(bool privileged) const {
        return !privileged && options_.privilege == MVPrivilege::whenRefused;
    }
    void repeatPrivileged();
    void post(std::function<void()> task) const { client_->executor(std::move(task)); }
    /// The functions of a host are destroyed on the thread that calls them: the task of the
    /// completion takes them with it.
    struct Reports {
        decltype(MVOperationOptions::progress) progress = nullptr;
        decltype(MVOperationOptions::itemCounts) itemCounts = nullptr;
        /// Is called by the executor's task.
        std::atomic<bool> isOneWaiting = false;
        /// Counts that the executor's next task takes: the last ones are never left out.
        std::mutex mutex = {};
        std::optional<MVItemCounts> latest = std::nullopt;
        /// Whether the completion was called.
        std::atomic<bool> isOver = false;
    };
    std::shared_ptr<Reports> takeReports();

  private:
    enum class Phase { waiting, sent, ended };

    bool beginSending();
    void authorized(const std::shared_ptr<ClientLane>& lane, NSErrorRef error);
    void sendLater(const std::shared_ptr<ClientLane>& lane, bool privileged);
    /// Null if the host is not to be told any more, with whether the service is to go on.
    std::shared_ptr<Reports> reportsFor(bool& goesOn) const;
    bool report(std::vector<std::shared_ptr<MVFileSizeItem>> sizes);
    bool report(const MVItemCounts& counts);

    const std::shared_ptr<MVFileClient::State> client_;
    MVOperationOptions options_;
    const char* const right_;
    const bool isLong_;
    const std::uint64_t begun_;
    mutable std::mutex mutex_;
    Phase phase_ = Phase::waiting;
    bool isCancelled_ = false;
    /// Set only while the request is repeated with privileges.
    bool isPrivileged_;
    std::shared_ptr<Reports> reports_ = std::make_shared<Reports>();
    std::optional<std::stop_callback<std::function<void()>>> stop_;
};

/// The error in an answer; null if there is none.
template <class T>
NSErrorRef errorOfAnswer(const Result<T>& answer) {
    return answer ? nullptr : answer.error();
}
inline NSErrorRef errorOfAnswer(const NSErrorRef& answer) {
    return answer;
}
template <class Answer>
NSErrorRef errorOfAnswer(const Answer& answer) {
    return answer.error;
}

/// An operation whose completion gets an Answer, which has room for an error.
template <class Answer>
class ClientOperationFor final : public ClientOperation {
  public:
    using Reply = std::function<void(Answer)>;
    /// Sends the request of the operation; `reply` is called with its answer.
    using Request = std::function<void(MVFileRequest& service, bool privileged, Reply reply)>;
    using Refusal = std::function<bool(const Answer&)>;

    ClientOperationFor(std::shared_ptr<MVFileClient::State> client, MVOperationOptions options,
                       const char* right, bool isLong, Request request,
                       MVFileClient::Completion<Answer> completion)
        : ClientOperation(std::move(client), std::move(options), right, isLong),
          request_(std::move(request)),
          completion_(std::move(completion)) {}

    /// Decides whether an answer is a refusal, instead of its error alone. It is called once,
    /// before the request is repeated.
    void setRefusal(Refusal refusal) { isRefused_ = std::move(refusal); }

  private:
    std::shared_ptr<ClientOperationFor> self() {
        return std::static_pointer_cast<ClientOperationFor>(shared_from_this());
    }

    void send(NSXPCConnection& connection, bool privileged,
              std::shared_ptr<ClientLane> lane) override {
        const auto service = connection.remoteObjectProxyWithErrorHandler<MVFileRequest>(
            [self = self(), privileged, lane](NSErrorRef error) {
                self->fail(privileged ? errorWithAdviceAboutHelper(std::move(error)) : error);
            });
        request_(*service, privileged, [self = self(), privileged, lane](Answer answer) {
            self->answered(std::move(answer), privileged);
        });
    }

    void answered(Answer answer, bool privileged) {
        if (mayRepeat(privileged) &&
            (isRefused_ ? isRefused_(answer) : isPermissionError(errorOfAnswer(answer)))) {
            // This comes before another thread sees the operation wait again.
            first_ = std::move(answer);
            repeatPrivileged();
        } else if (end()) {
            deliver(std::move(answer));
        }
    }

    void complete(NSErrorRef error) override { deliver(withError(std::move(error))); }

    /// Makes an answer of the reason why there is none, with what is known from a refused one.
    Answer withError(NSErrorRef error) {
        if (first_)
            error = withFirst(*error, errorOfAnswer(*first_));
        if constexpr (std::is_same_v<Answer, NSErrorRef>) {
            return error;
        } else if constexpr (std::is_constructible_v<Answer, Failure<NSErrorRef>>) {
            return Failure{std::move(error)};
        } else {
            Answer answer = first_ ? std::move(*first_) : Answer();
            answer.error = std::move(error);
            return answer;
        }
    }

    /// Also tells which items the first answer had failed with: they are as it left them.
    static NSErrorRef withFirst(const NSError& error, const NSErrorRef& first) {
        auto userInfo = error.userInfo();
        if (first)
            userInfo.try_emplace(NSUnderlyingErrorKey, first);
        auto whole = NSError::errorWithDomain(error.domain(), error.code(), std::move(userInfo));
        const auto failures = first ? failuresOfError(*first) : MVItemFailures();
        if (failures.counts == MVItemCounts() || failuresOfError(error).counts != MVItemCounts())
            return whole;
        return errorWithFailures(whole, failures);
    }

    void deliver(Answer answer) {
        post([completion = std::move(completion_), reports = takeReports(),
              answer = std::make_shared<Answer>(std::move(answer))] {
            reports->isOver = true;
            if (completion)
                completion(std::move(*answer));
        });
    }

    Request request_;
    Refusal isRefused_;
    MVFileClient::Completion<Answer> completion_;
    std::optional<Answer> first_;
};

}  // namespace morvane
