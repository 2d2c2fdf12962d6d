// SPDX-License-Identifier: MIT
// What tests do with every message of the protocol of requests, whatever messages it has.
#pragma once

#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace morvane {

/// A service that answers nothing. A subclass overrides the requests that it answers.
class UnansweredRequests : public MVFileRequest {
  public:
#define MVIgnore(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT) \
    void NAME PARAMETERS override {                            \
        std::forward_as_tuple ARGUMENTS;                       \
    }
    MVFileRequestMessages(MVIgnore)
#undef MVIgnore
};

/// Arguments for a request about one item, whose reply ends with `ended`.
struct SampleArguments {
    NSURL item;
    std::function<void(const NSErrorRef& error)> ended;

    NSURL of(std::type_identity<NSURL>) const { return item; }
    std::vector<NSURL> of(std::type_identity<std::vector<NSURL>>) const { return {item}; }
    std::vector<std::string> of(std::type_identity<std::vector<std::string>>) const {
        return {"taken"};
    }
    NSUUID of(std::type_identity<NSUUID>) const { return uuidOfPosixIdentity(CBPosixUser{0}); }
    template <class... Results>
    NSXPCReply<Results...> of(std::type_identity<NSXPCReply<Results...>>) const {
        return [ended = ended](Results... results) {
            ended(std::get<sizeof...(results) - 1>(std::tie(results...)));
        };
    }
    template <class T>
    T of(std::type_identity<T>) const {
        return T();
    }
};

struct SampleMessage {
    std::string_view selector;
    std::function<void(MVFileRequest& service, const SampleArguments& arguments)> send;
};

inline std::vector<SampleMessage> everyMessage() {
    const auto sending = []<class... T>(void (MVFileRequest::*message)(T...)) {
        return [message](MVFileRequest& service, const SampleArguments& arguments) {
            (service.*message)(arguments.of(std::type_identity<T>())...);
        };
    };
#define MVSend(NAME, SELECTOR, PARAMETERS, ARGUMENTS, RIGHT) \
    {SELECTOR, sending(&MVFileRequest::NAME)},
    return {
        MVFileRequestMessages(MVSend)
    };
#undef MVSend
}

}  // namespace morvane
