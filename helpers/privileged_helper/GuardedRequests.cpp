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
                request->failed(error->localizedDescription());
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

/// A sentence without its capital and its full stop.
std::string refusal(RightState state, const std::string& right) {
    switch (state) {
        case RightState::expired:
            return "the right " + right + " has expired";
        case RightState::unknown:
            return "the system's policy service cannot be reached";
        default:
            return "the right " + right + " is not held";
    }
}

const char* suggestion(RightState state) {
    switch (state) {
        case RightState::expired:
            return "Ask again in five minutes, or in a program started anew.";
        case RightState::unknown:
            return "Check that polkit runs ('systemctl status polkit'), and try again.";
        default:
            return "Ask for the right again; it holds for 45 seconds, and for the process that has "
                   "asked.";
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
        const std::string why = refusal(state, right ? right : "to it");
        journal->refused(client, selector, why);
        auto description = why + '.';
        description.front() = 'T';
        return NSError::errorWithDomain(
            NSPOSIXErrorDomain, EACCES,
            {{NSLocalizedDescriptionKey, std::move(description)},
             {NSLocalizedRecoverySuggestionErrorKey, suggestion(state)}});
    };
}

std::shared_ptr<MVFileRequest> loggedRequests(std::shared_ptr<MVFileRequest> requests,
                                              std::shared_ptr<RequestJournal> journal,
                                              const RequestClient& client) {
    return std::make_shared<LoggedRequests>(std::move(requests), std::move(journal), client);
}

}  // namespace morvane
