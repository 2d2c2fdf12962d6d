#include "GuardedRequests.h"

#include <cerrno>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace morvane {

namespace {

/// What a request is about: each item, and the name that it is to get.
struct Subjects {
    std::vector<NSURL> items;
    std::vector<std::string> names;

    void add(const NSURL& url) { items.push_back(url); }
    void add(const std::vector<NSURL>& urls) { items = urls; }
    void add(const std::vector<std::string>& newNames) { names = newNames; }
    template <class T>
    void add(const T&) {}

    std::string line(std::size_t i) const {
        auto text = '"' + escapedForLog(items[i].path()) + '"';
        return i < names.size() ? text + " as \"" + escapedForLog(names[i]) + '"' : text;
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
    LoggedRequests(std::shared_ptr<MVFileRequest> requests, RequestLog log,
                   std::shared_ptr<RequestsAtWork> work)
        : requests_(std::move(requests)), log_(std::move(log)), work_(std::move(work)) {}

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
        auto subjects = subjectsOf(arguments);
        auto& reply = std::get<sizeof...(T) - 1>(arguments);
        auto told = telling(std::move(reply), std::string(selector), std::move(subjects));
        reply = std::move(told);
        std::apply([&](T&&... each) { (requests_.get()->*method)(std::forward<T>(each)...); },
                   std::move(arguments));
    }

    /// `reply`, which tells the log of every item how the request has ended before it is sent.
    template <class... T>
    NSXPCReply<T...> telling(NSXPCReply<T...>&& reply, std::string selector,
                             Subjects subjects) const {
        return [reply = std::move(reply), work = work_->begin(), log = log_,
                selector = std::move(selector), subjects = std::move(subjects)](T... results) {
            const auto& error = std::get<NSErrorRef&>(std::tie(results...));
            const auto end =
                error ? "failed, " + escapedForLog(error->localizedDescription()) : "done";
            for (std::size_t i = 0; i != subjects.items.size(); ++i) {
                auto line = selector + " ";
                line += subjects.line(i);
                line += ": ";
                line += end;
                log(line);
            }
            reply(std::move(results)...);
        };
    }

    const std::shared_ptr<MVFileRequest> requests_;
    const RequestLog log_;
    const std::shared_ptr<RequestsAtWork> work_;
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
            return "See that polkit runs, and try again.";
        default:
            return "Ask for the right again; it holds for 45 seconds, and for the process that has "
                   "asked.";
    }
}

}  // namespace

NSXPCConnection::Admission admissionByRight(RightCheck check, RequestLog log) {
    return [check = std::move(check), log = std::move(log)](std::string_view selector) {
        const char* const right = rightFor(selector);
        const auto state = right ? check(right) : RightState::notHeld;
        if (state == RightState::held)
            return NSErrorRef();
        const std::string why = refusal(state, right ? right : "to it");
        log(std::string(selector) + " refused, " + why);
        auto description = why + '.';
        description.front() = 'T';
        return NSError::errorWithDomain(
            NSPOSIXErrorDomain, EACCES,
            {{NSLocalizedDescriptionKey, std::move(description)},
             {NSLocalizedRecoverySuggestionErrorKey, suggestion(state)}});
    };
}

std::shared_ptr<MVFileRequest> loggedRequests(std::shared_ptr<MVFileRequest> requests,
                                              RequestLog log,
                                              std::shared_ptr<RequestsAtWork> work) {
    return std::make_shared<LoggedRequests>(std::move(requests), std::move(log), std::move(work));
}

std::string escapedForLog(std::string_view path) {
    constexpr std::size_t longest = 4096;
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const char c : path.substr(0, longest)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7F || c == '\\' || c == '"') {
            text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            text += c;
        }
    }
    return text;
}

}  // namespace morvane
