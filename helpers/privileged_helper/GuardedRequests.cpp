// SPDX-License-Identifier: MIT
#include "GuardedRequests.h"

#include <cerrno>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace morvane {

namespace {

/// What a request is about: each item, and the name that it is to get. They are the request's own.
struct Subjects {
    std::span<const NSURL> items;
    std::span<const std::string> names;

    void add(const NSURL& url) { items = std::span(&url, 1); }
    void add(const std::vector<NSURL>& urls) { items = urls; }
    void add(const std::vector<std::string>& newNames) { names = newNames; }
    template <class T>
    void add(const T&) {}

    RequestItems forLog() const {
        return {items.size(), [*this](std::size_t i) {
                    auto text = '"' + escapedForLog(items[i].path()) + '"';
                    return i < names.size() ? text + " as \"" + escapedForLog(names[i]) + '"'
                                            : text;
                }};
    }
};

template <class... T>
Subjects subjectsOf(const std::tuple<T...>& arguments) {
    Subjects subjects;
    std::apply([&](const auto&... each) { (subjects.add(each), ...); }, arguments);
    return subjects;
}

class LoggedRequests final : public MVFileRequest {
  public:
    LoggedRequests(std::shared_ptr<MVFileRequest> requests, std::shared_ptr<RequestJournal> journal,
                   const RequestClient& client)
        : requests_(std::move(requests)), journal_(std::move(journal)), client_(client) {}

#define MVLoggedRequest(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT)                   \
    void NAME PARAMETERS override {                                                     \
        static_assert(std::string_view(RIGHT).size() > 1, "A message without a right"); \
        pass(SELECTOR, &MVFileRequest::NAME, std::forward_as_tuple ARGUMENTS);          \
    }
    MVFileRequestMessages(MVLoggedRequest)
#undef MVLoggedRequest

  private:
    template <class Method, class... T>
    void pass(std::string_view selector, Method method, std::tuple<T...> arguments) {
        auto request = journal_->begin(client_, selector, subjectsOf(arguments).forLog());
        auto& reply = std::get<sizeof...(T) - 1>(arguments);
        auto told = telling(std::move(reply), std::move(request));
        reply = std::move(told);
        std::apply([&](T&&... each) { (requests_.get()->*method)(std::forward<T>(each)...); },
                   std::move(arguments));
    }

    /// `reply`, which tells the log how the request has ended before it is sent.
    template <class... T>
    static NSXPCReply<T...> telling(NSXPCReply<T...>&& reply,
                                    std::shared_ptr<RequestJournal::Request> request) {
        return [reply = std::move(reply), request = std::move(request)](T... results) {
            const auto& error = std::get<NSErrorRef&>(std::tie(results...));
            if (error)
                request->failed(error->description().english());
            else
                request->done();
            reply(std::move(results)...);
        };
    }

    const std::shared_ptr<MVFileRequest> requests_;
    const std::shared_ptr<RequestJournal> journal_;
    const RequestClient client_;
};

/// Null for what is no message of the protocol.
const char* rightFor(std::string_view selector) {
    for (const auto& message : MVFileRequestRights) {
        if (message.selector == selector)
            return message.right.data();
    }
    return nullptr;
}

Phrase refusal(RightState state, const std::string& right) {
    switch (state) {
        case RightState::expired:
            return phrase("The right %1 has expired.", right);
        case RightState::unknown:
            return phrase("The system's policy service cannot be reached.");
        default:
            return right.empty() ? phrase("The right to it is not held.")
                                 : phrase("The right %1 is not held.", right);
    }
}

/// For the log: without the capital and the full stop.
std::string withinALine(const std::string& sentence) {
    auto text = sentence.substr(0, sentence.size() - 1);
    text.front() = 't';
    return text;
}

Phrase suggestion(RightState state) {
    switch (state) {
        case RightState::expired:
            return phrase("Ask again in five minutes, or in a program started anew.");
        case RightState::unknown:
            return phrase("Check that polkit runs ('systemctl status polkit'), and try again.");
        default:
            return phrase(
                "Ask for the right again; it holds for 45 seconds, and for the process "
                "that has asked.");
    }
}

}  // namespace

NSXPCConnection::Admission admissionByRight(RightCheck check,
                                            std::shared_ptr<RequestJournal> journal,
                                            const RequestClient& client) {
    return [check = std::move(check), journal = std::move(journal),
            client](std::string_view selector) {
        const char* const right = rightFor(selector);
        const auto state = right ? check(right) : RightState::notHeld;
        if (state == RightState::held)
            return NSErrorRef();
        const auto why = refusal(state, right ? right : "");
        journal->refused(client, selector, withinALine(why.english()));
        return NSError::errorWithDescription(NSPOSIXErrorDomain, EACCES, why, suggestion(state));
    };
}

std::shared_ptr<MVFileRequest> loggedRequests(std::shared_ptr<MVFileRequest> requests,
                                              std::shared_ptr<RequestJournal> journal,
                                              const RequestClient& client) {
    return std::make_shared<LoggedRequests>(std::move(requests), std::move(journal), client);
}

}  // namespace morvane
