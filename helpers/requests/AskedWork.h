// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <tuple>
#include <utility>

#include "WorkErrors.h"

namespace morvane {

class ClientQuestion;

/// Does work on files on the thread of its request, because most of it takes no time.
///
/// If it takes longer, its client is asked now and then whether it is to go on, on another thread.
/// After a no, or once the client has gone, it has to end; where a file system that does not answer
/// keeps it from that, its request is answered in its place, and its thread counts as left work of
/// its user until it comes back.
class AskedWork : public std::enable_shared_from_this<AskedWork> {
  public:
    struct Client {
        std::weak_ptr<NSXPCConnection> connection;
        /// Whose work it is.
        std::uint32_t user = 0;
    };
    /// How long to wait before the first question to the client, and between two questions.
    static constexpr std::chrono::milliseconds interval{250};
    /// How long the work may take to end after a no.
    static constexpr std::chrono::milliseconds grace{1000};

    /// `instead` answers the request if the work cannot.
    AskedWork(const Client& client, std::function<void()> instead);
    ~AskedWork();
    AskedWork(const AskedWork&) = delete;
    AskedWork& operator=(const AskedWork&) = delete;

    /// From now on the client is asked.
    void begin();
    /// False once the work has to end.
    bool goesOn() const;
    /// Called when the work is done. Returns the function that would have answered in its place,
    /// which is not needed any more; empty if it has already been called.
    std::function<void()> finish();

  private:
    void lookLater(std::chrono::milliseconds time);
    void look();

    const std::uint32_t user_;
    const std::shared_ptr<ClientQuestion> question_;
    std::mutex mutex_;
    /// Answers the request if the work cannot; empty once it has been called, or the work is done.
    std::function<void()> instead_;
    bool isToEnd_ = false;
    /// Whether the work was left and counts against its user.
    bool isCounted_ = false;
};

/// Whether too much of the user's work has been left for more to be begun.
bool hasTooMuchWorkLeft(std::uint32_t user);

/// Answers a request with what `work` returns, a tuple of the reply's arguments; or with `instead`
/// and an error that says why, if the work is not begun or has been left. `work` is given what says
/// whether it is to go on. `token` is released once the request is answered.
template <class... T, class Work>
void answerWhileAsking(const AskedWork::Client& client, const NSURL& url,
                       const NSXPCReply<T...>& reply, Work&& work, std::tuple<T...> instead = {},
                       std::shared_ptr<void> token = nullptr) {
    // Only the work holds this, so that the token can be released even if the work's thread does
    // not come back.
    std::function<void(NSErrorRef)> fail = [reply, instead = std::move(instead),
                                            token = std::move(token)](NSErrorRef error) {
        auto results = instead;
        std::get<NSErrorRef>(results) = std::move(error);
        std::apply(reply, std::move(results));
    };
    if (hasTooMuchWorkLeft(client.user)) {
        fail(errorOfWork(WorkEnd::tooMuchLeft, url));
        return;
    }
    const auto asked = std::make_shared<AskedWork>(
        client, [fail = std::move(fail), url] { fail(errorOfCancelledWork(url, WorkEnd::left)); });
    asked->begin();
    auto results = work([&asked = *asked] { return asked.goesOn(); });
    if (const auto unneeded = asked->finish())
        std::apply(reply, std::move(results));
}

}  // namespace morvane
