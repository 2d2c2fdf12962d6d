// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileClient.h>
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

/// What was thrown, as an error.
NSErrorRef errorOfFailure(const std::exception_ptr& failure);
/// The end of what was cancelled before it was sent.
NSErrorRef cancellation();

/// What the operations of a client share; lasts as long as one of them does.
class MVFileClient::State {
  public:
    State(Executor executor, ConnectorMaker maker);

    const Executor executor;
    const std::shared_ptr<ClientAuthority> authority = std::make_shared<ClientAuthority>();
    const std::shared_ptr<ClientLanes> lanes;
    const std::shared_ptr<ClientLanes> privilegedLanes;
    /// For what needs no service.
    const std::shared_ptr<DispatchQueue> work = DispatchQueue::serialQueue(nullptr);
    const std::shared_ptr<IdentitySearch> people = std::make_shared<IdentitySearch>();

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
    /// Whether its request is still to be sent.
    bool isWaiting() const;
    /// Begins; returns at once.
    void start();
    /// Ends it if it waits, and has the service stop otherwise. Any thread.
    void cancel();
    /// Sends the request, on another thread, with the connector that is the operation's now.
    void run(const std::shared_ptr<ClientLane>& lane);
    /// Ends it with what was thrown.
    void failWith(const std::exception_ptr& failure);

  protected:
    /// Puts the completion to the executor with `error`.
    virtual void complete(NSErrorRef error) = 0;
    /// Sends the request. What comes ends in answered(), or in failed().
    virtual void send(NSXPCConnection& connection, bool privileged,
                      std::shared_ptr<ClientLane> lane) = 0;

    /// Ends the operation with `error`.
    void fail(NSErrorRef error);
    /// True for the first caller, who then calls the completion.
    bool end();
    /// Whether a request that was refused is sent to the helper, too.
    bool mayRepeat(bool privileged) const {
        return !privileged && options_.privilege == MVPrivilege::whenRefused;
    }
    void repeatPrivileged();
    void post(std::function<void()> task) const { client_->executor(std::move(task)); }
    /// What a host has given is destroyed where it is called: the completion's task takes it.
    struct Reports {
        decltype(MVOperationOptions::progress) progress = nullptr;
        /// In the executor.
        std::atomic<bool> isOneWaiting = false;
        /// The completion has come.
        std::atomic<bool> isOver = false;
    };
    std::shared_ptr<Reports> takeReports();

  private:
    enum class Phase { waiting, sent, ended };

    bool beginSending();
    void authorized(const std::shared_ptr<ClientLane>& lane, NSErrorRef error);
    void sendLater(const std::shared_ptr<ClientLane>& lane, bool privileged);
    bool report(std::vector<std::shared_ptr<MVFileSizeItem>> sizes);

    const std::shared_ptr<MVFileClient::State> client_;
    MVOperationOptions options_;
    const char* const right_;
    const bool isLong_;
    const std::uint64_t begun_;
    mutable std::mutex mutex_;
    Phase phase_ = Phase::waiting;
    bool isCancelled_ = false;
    /// Only set with the repetition with privileges.
    bool isPrivileged_;
    std::shared_ptr<Reports> reports_ = std::make_shared<Reports>();
    std::optional<std::stop_callback<std::function<void()>>> stop_;
};

/// The error of what an operation brings.
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

/// An operation that brings an Answer, which has an error.
template <class Answer>
class ClientOperationFor final : public ClientOperation {
  public:
    using Reply = std::function<void(Answer)>;
    /// Sends the one request of the operation; `reply` is called with what comes.
    using Request = std::function<void(MVFileRequest& service, bool privileged, Reply reply)>;
    using Refusal = std::function<bool(const Answer&)>;

    ClientOperationFor(std::shared_ptr<MVFileClient::State> client, MVOperationOptions options,
                       const char* right, bool isLong, Request request,
                       MVFileClient::Completion<Answer> completion)
        : ClientOperation(std::move(client), std::move(options), right, isLong),
          request_(std::move(request)),
          completion_(std::move(completion)) {}

    /// Looks whether an answer was refused, once and before it is asked for again, instead of at
    /// its error alone.
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
            // Before another thread sees the operation wait again.
            first_ = std::move(answer);
            repeatPrivileged();
        } else if (end()) {
            deliver(std::move(answer));
        }
    }

    void complete(NSErrorRef error) override { deliver(withError(std::move(error))); }

    /// Why there is no answer, with what is known of one that was refused before.
    Answer withError(NSErrorRef error) {
        if (first_)
            error = withUnderlying(*error, errorOfAnswer(*first_));
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

    static NSErrorRef withUnderlying(const NSError& error, const NSErrorRef& underlying) {
        auto userInfo = error.userInfo();
        if (underlying)
            userInfo.try_emplace(NSUnderlyingErrorKey, underlying);
        return NSError::errorWithDomain(error.domain(), error.code(), std::move(userInfo));
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
