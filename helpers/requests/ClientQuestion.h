// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVItemProgress.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace morvane {

/// Asks the client of a long request, a few times a second, whether to go on. It is not asked again
/// before it has answered, so that a slow client is not buried in questions. Answers may come on
/// any thread, also after the end of the work.
class ClientQuestion : public std::enable_shared_from_this<ClientQuestion> {
  public:
    /// `stop` is called for every answer no, and when the client has gone.
    explicit ClientQuestion(std::weak_ptr<NSXPCConnection> client, std::function<void()> stop = {})
        : client_(std::move(client)), stop_(std::move(stop)) {}

    bool goesOn() const { return goesOn_; }

    /// `tell` gets the client's proxy, and a function for the answer to a further message that it
    /// sends. It returns false if the work is to stop.
    using Answer = std::function<void(bool)>;
    using Tell = std::function<void(MVCountedResponse& client, const Answer& answer)>;
    bool ask(const Tell& tell = {}) {
        const auto client = client_.lock();
        if (!client) {
            stop();
            return false;
        }
        if (unanswered_ > 0 || !goesOn_)
            return goesOn_;
        unanswered_ = tell ? 2 : 1;
        try {
            send(*client, tell);
        } catch (...) {
            unanswered_ = 0;  // A client that was not asked does not answer.
            throw;
        }
        return goesOn_;
    }

    /// Sends what the work has come to, before its answer. Nothing depends on it any more.
    void tellEnd(const Tell& tell) const {
        try {
            if (const auto client = client_.lock())
                tell(*client->remoteObjectProxyWithErrorHandler<MVCountedResponse>({}),
                     [](bool) {});
        } catch (const std::exception&) {
            // There is no memory for it; the answer comes all the same, or tells so.
        }
    }

  private:
    void send(NSXPCConnection& client, const Tell& tell) {
        const auto answer = [self = shared_from_this()](bool yes) {
            if (!yes)
                self->stop();
            --self->unanswered_;
        };
        const auto proxy = client.remoteObjectProxyWithErrorHandler<MVCountedResponse>(
            [self = shared_from_this()](NSErrorRef error) {
                // A client that merely has no answer for us lets the work go on.
                if (error->code() != NSXPCConnectionReplyInvalid)
                    self->stop();
                --self->unanswered_;
            });
        if (tell)
            tell(*proxy, answer);
        proxy->progressWithReply(answer);
    }

    void stop() {
        goesOn_ = false;
        if (stop_)
            stop_();
    }

    const std::weak_ptr<NSXPCConnection> client_;
    const std::function<void()> stop_;
    std::atomic<int> unanswered_ = 0;
    std::atomic<bool> goesOn_ = true;
};

}  // namespace morvane
