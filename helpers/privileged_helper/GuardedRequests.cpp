#include "GuardedRequests.h"

#include <cerrno>
#include <tuple>
#include <type_traits>
#include <utility>

#include "RequestErrors.h"

namespace morvane {

namespace {

/// What a request is about, as far as it names an item.
template <class T>
const NSURL* itemOf(const T& argument) {
    if constexpr (std::is_same_v<T, NSURL>)
        return &argument;
    else if constexpr (std::is_same_v<T, std::vector<NSURL>>)
        return argument.empty() ? nullptr : &argument.front();
    else
        return nullptr;
}

template <class... T>
NSURL itemOfArguments(const std::tuple<T...>& arguments) {
    const NSURL* item = nullptr;
    std::apply([&](const auto&... each) { ((item = item ? item : itemOf(each)), ...); }, arguments);
    return item ? *item : NSURL::fileURLWithPath("/");
}

/// Ends a request with an error and with nothing else.
template <class... T>
void fail(const NSXPCReply<T...>& reply, NSErrorRef error) {
    std::tuple<T...> nothing;
    std::get<NSErrorRef>(nothing) = std::move(error);
    std::apply(reply, std::move(nothing));
}

class GuardedRequests final : public MVFileRequest {
  public:
    GuardedRequests(std::shared_ptr<MVFileRequest> requests, RightCheck check, RequestLog log)
        : requests_(std::move(requests)), check_(std::move(check)), log_(std::move(log)) {}

#define MVGuardedRequest(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT)                  \
    void NAME PARAMETERS override {                                                     \
        static_assert(std::string_view(RIGHT).size() > 1, "A message without a right"); \
        guard(SELECTOR, RIGHT, &MVFileRequest::NAME, std::forward_as_tuple ARGUMENTS);  \
    }
    MVFileRequestMessages(MVGuardedRequest)
#undef MVGuardedRequest

        private : template <class Method, class... T>
                  void guard(std::string_view selector, const char* right, Method method,
                             std::tuple<T...> arguments) {
        const auto item = itemOfArguments(arguments);
        auto& reply = std::get<sizeof...(T) - 1>(arguments);
        const std::string line = std::string(selector) + " " + escapedForLog(item.path());
        const auto state = check_(right);
        if (state != RightState::held) {
            const std::string why =
                std::string("the right ") + right +
                (state == RightState::expired ? " has expired" : " is not held");
            log_(line + ": refused, " + why);
            fail(reply, posixError(EACCES, item, "T" + why.substr(1) + ".",
                                   state == RightState::expired
                                       ? "Ask again in five minutes, or in a program started anew."
                                       : ""));
            return;
        }
        auto told = telling(std::move(reply), line);
        reply = std::move(told);
        std::apply([&](T&&... each) { (requests_.get()->*method)(std::forward<T>(each)...); },
                   std::move(arguments));
    }

    /// `reply`, which tells the log how the request has ended before it is sent.
    template <class... T>
    NSXPCReply<T...> telling(NSXPCReply<T...>&& reply, std::string line) const {
        return [reply = std::move(reply), log = log_, line = std::move(line)](T... results) {
            const auto& error = std::get<NSErrorRef&>(std::tie(results...));
            log(line + ": " +
                (error ? "failed, " + escapedForLog(error->localizedDescription()) : "done"));
            reply(std::move(results)...);
        };
    }

    const std::shared_ptr<MVFileRequest> requests_;
    const RightCheck check_;
    const RequestLog log_;
};

}  // namespace

std::shared_ptr<MVFileRequest> guardedRequests(std::shared_ptr<MVFileRequest> requests,
                                               RightCheck check, RequestLog log) {
    return std::make_shared<GuardedRequests>(std::move(requests), std::move(check), std::move(log));
}

std::string escapedForLog(std::string_view path) {
    constexpr std::size_t longest = 4096;
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const char c : path.substr(0, longest)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F || c == '\\') {
            text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            text += c;
        }
    }
    return text;
}

}  // namespace morvane
