// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCRequest.h>

#include <array>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/**
 * \file
 * Declares the messages of a protocol, once. Proxy, dispatcher and description come from it.
 *
 *     #define ClockMessages(MESSAGE)                                                          \
 *         MESSAGE(timeInZone, "timeInZone:reply:",                                            \
 *                 (std::string zone, NSXPCReply<std::int64_t, NSErrorRef> reply),             \
 *                 (std::move(zone), std::move(reply)))                                        \
 *         MESSAGE(setTime, "setTime:reply:",                                                  \
 *                 (std::int64_t time, NSXPCReply<NSErrorRef> reply), (time, std::move(reply)))
 *     class Clock {
 *       public:
 *         virtual ~Clock() = default;
 *         ClockMessages(NSXPC_DECLARE_MESSAGE)
 *     };
 *     NSXPC_PROTOCOL(Clock, ClockMessages)
 *
 * Each message is MESSAGE(member name, selector, parameters, the parameters as arguments, ...);
 * what follows is the protocol's own and is ignored here. The last parameter is the reply. The
 * types that may be used are those of NSXPCCoding.h. NSXPC_PROTOCOL() stands in the namespace of
 * the protocol; a host may declare protocols of its own.
 *
 * Every file that includes NSXPC_PROTOCOL() compiles the proxy and the description anew. A header
 * that many files include has NSXPC_DECLARE_PROTOCOL(Clock) instead, and one source file has
 * NSXPC_DEFINE_PROTOCOL(Clock, ClockMessages).
 */

namespace morvane {

namespace xpc_message {

/// The archive keys of the arguments.
inline constexpr std::array<std::string_view, 8> keys = {"0", "1", "2", "3", "4", "5", "6", "7"};

template <class... T>
struct Types {
    static constexpr std::size_t count = sizeof...(T);
    static_assert(count <= keys.size());
    using Tuple = std::tuple<T...>;

    static std::vector<NSClassSet> defaultClasses() {
        return {NSXPCCoding<T>::defaultClasses()...};
    }

    /// What is handed over may become a part of the archive.
    template <class... V>
    static void encode(NSKeyedArchiver& coder, V&&... values) {
        std::size_t i = 0;
        (NSXPCCoding<T>::encode(coder, std::forward<V>(values), keys[i++]), ...);
    }

    static Tuple decode(NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes) {
        return decodeAt<false>(coder, classes, std::index_sequence_for<T...>());
    }
    static Tuple decodeRequest(NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes) {
        return decodeAt<true>(coder, classes, std::index_sequence_for<T...>());
    }

  private:
    template <bool isRequest, std::size_t... I>
    static Tuple decodeAt([[maybe_unused]] NSKeyedUnarchiver& coder,
                          [[maybe_unused]] const std::vector<NSClassSet>& classes,
                          std::index_sequence<I...>) {
        // Braces decode from left to right.
        return Tuple{decodeOne<isRequest, T>(coder, I, classes[I])...};
    }
    template <bool isRequest, class One>
    static One decodeOne(NSKeyedUnarchiver& coder, std::size_t i, const NSClassSet& classes) {
        try {
            if constexpr (isRequest)
                xpc_coding::requireArray<One>(coder, keys[i]);
            return NSXPCCoding<One>::decode(coder, keys[i], classes);
        } catch (const NSArchiveFailure& failure) {
            // The failure names the key it met, which may lie deep inside the argument.
            throw NSXPCArgumentFailure(i, failure);
        }
    }
};

/// Splits the parameters of a message into its own and its reply's.
template <class Own, class... Rest>
struct Split;
template <class... Own, class... Reply>
struct Split<Types<Own...>, std::function<void(Reply...)>> {
    using Arguments = Types<Own...>;
    using ReplyArguments = Types<std::decay_t<Reply>...>;
    using ReplyFunction = std::function<void(Reply...)>;
};
template <class... Own, class First, class... Rest>
requires(sizeof...(Rest) > 0) struct Split<Types<Own...>, First, Rest...>
    : Split<Types<Own..., std::decay_t<First>>, Rest...> {
};

template <class Method>
struct Traits;
template <class P, class... A>
struct Traits<void (P::*)(A...)> : Split<Types<>, std::decay_t<A>...> {};

template <class Function, class Arguments>
class Receiver;
template <class Function, class... T>
class Receiver<Function, Types<T...>> final : public NSXPCReplyReceiver {
  public:
    Receiver(Function reply, std::shared_ptr<const std::function<void(NSErrorRef)>> errorHandler)
        : reply_(std::move(reply)), errorHandler_(std::move(errorHandler)) {}

    void decode(NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes) override {
        values_ = Types<T...>::decode(coder, classes);
    }
    void deliver() override {
        if (reply_)
            std::apply(reply_, std::move(*values_));
    }
    void fail(NSErrorRef error) override {
        if (*errorHandler_)
            (*errorHandler_)(std::move(error));
    }

  private:
    Function reply_;
    std::shared_ptr<const std::function<void(NSErrorRef)>> errorHandler_;
    std::optional<std::tuple<T...>> values_;
};

/// The reply callback that a received request is given.
template <class Arguments>
class Replier;
template <class... T>
class Replier<Types<T...>> {
  public:
    explicit Replier(std::shared_ptr<NSXPCReplyPort> port) : port_(std::move(port)) {}

    void operator()(T... values) const {
        if (!port_->claim())
            return;
        NSDataPieces archive;
        try {
            NSKeyedArchiver coder;
            Types<T...>::encode(coder, std::move(values)...);
            archive = coder.finishEncodingInPieces();
        } catch (const std::exception& failure) {
            // The sender is told. Not thrown on: a thread of the handler's may have nobody to catch
            // it.
            port_->sendRefusal(failure.what());
            return;
        }
        port_->sendReply(std::move(archive));
    }

  private:
    std::shared_ptr<NSXPCReplyPort> port_;
};

/// `object` is a P, whose message may be that of a protocol which P extends.
template <class P, auto Method>
void dispatch(void* object, NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes,
              const std::shared_ptr<NSXPCReplyPort>& port) {
    using Message = Traits<decltype(Method)>;
    auto arguments = Message::Arguments::decodeRequest(coder, classes);
    auto* target = static_cast<P*>(object);
    port->willCallObject();
    std::apply(
        [&](auto&&... own) {
            (target->*Method)(std::move(own)..., Replier<typename Message::ReplyArguments>(port));
        },
        std::move(arguments));
}

template <class Arguments>
struct ErrorReply;
template <class... T>
struct ErrorReply<Types<T...>> {
    static void send(const std::shared_ptr<NSXPCReplyPort>& port, const NSErrorRef& error) {
        if constexpr ((std::is_same_v<T, NSErrorRef> || ...)) {
            std::tuple<T...> nothing;
            std::get<NSErrorRef>(nothing) = error;
            std::apply(Replier<Types<T...>>(port), std::move(nothing));
        } else if (port->claim()) {
            port->sendRefusal(error->localizedDescription());
        }
    }
};

template <auto Method>
void endWithError(const std::shared_ptr<NSXPCReplyPort>& port, const NSErrorRef& error) {
    ErrorReply<typename Traits<decltype(Method)>::ReplyArguments>::send(port, error);
}

template <class P, auto Method>
NSXPCMessageDescription describe(std::string_view selector) {
    using Message = Traits<decltype(Method)>;
    return {{Message::Arguments::defaultClasses(), Message::ReplyArguments::defaultClasses()},
            selector,
            &dispatch<P, Method>,
            &endWithError<Method>};
}

/// A selector has one colon for each parameter, the reply included.
template <auto Method>
consteval bool fitsSelector(std::string_view selector) {
    std::size_t colons = 0;
    for (char c : selector)
        colons += c == ':';
    return colons == Traits<decltype(Method)>::Arguments::count + 1;
}

}  // namespace xpc_message

/// The connection behind a proxy, and its error handler.
class NSXPCProxyTarget {
  public:
    using ErrorHandler = std::function<void(NSErrorRef)>;

    NSXPCProxyTarget(std::shared_ptr<NSXPCRequestSink> sink, ErrorHandler errorHandler)
        : sink_(std::move(sink)),
          errorHandler_(std::make_shared<const ErrorHandler>(std::move(errorHandler))) {}

    /// Sends the message `Method`, which is number `Index` of its protocol. Throws what the
    /// arguments' encoding throws; nothing was sent then.
    template <auto Method, std::size_t Index, class... A>
    void send(A&&... arguments) const {
        sendTuple<Method, Index>(std::forward_as_tuple(std::forward<A>(arguments)...),
                                 std::make_index_sequence<sizeof...(A) - 1>());
    }

  private:
    template <auto Method, std::size_t Index, class Arguments, std::size_t... I>
    void sendTuple(Arguments arguments, std::index_sequence<I...>) const {
        using Traits = xpc_message::Traits<decltype(Method)>;
        using Receiver =
            xpc_message::Receiver<typename Traits::ReplyFunction, typename Traits::ReplyArguments>;
        NSKeyedArchiver coder;
        // The last one is the reply, which is moved below.
        Traits::Arguments::encode(
            coder, std::forward<std::tuple_element_t<I, Arguments>>(std::get<I>(arguments))...);
        sink_->sendRequest(Index, coder.finishEncoding(),
                           std::make_unique<Receiver>(std::move(std::get<sizeof...(I)>(arguments)),
                                                      errorHandler_));
    }

    std::shared_ptr<NSXPCRequestSink> sink_;
    std::shared_ptr<const ErrorHandler> errorHandler_;
};

/// The description of a protocol declared with NSXPC_PROTOCOL().
template <class P>
const NSXPCProtocolDescription& protocolDescription() {
    return nsxpcProtocolDescription(static_cast<const P*>(nullptr));
}

/// An object whose member functions send the protocol's messages to `target`.
template <class P>
std::shared_ptr<P> makeProxy(NSXPCProxyTarget target) {
    return nsxpcMakeProxy(static_cast<const P*>(nullptr), std::move(target));
}

}  // namespace morvane

/// For the list of messages inside the protocol class.
#define NSXPC_DECLARE_MESSAGE(NAME, SELECTOR, PARAMS, ARGS, ...) virtual void NAME PARAMS = 0;

#define NSXPC_MESSAGE_INDEX(NAME, SELECTOR, PARAMS, ARGS, ...) NAME##_index,
#define NSXPC_MESSAGE_PROXY(NAME, SELECTOR, PARAMS, ARGS, ...)                          \
    void NAME PARAMS override {                                                         \
        static_assert(::morvane::xpc_message::fitsSelector<&Protocol::NAME>(SELECTOR)); \
        target_.send<&Protocol::NAME, NAME##_index> ARGS;                               \
    }
#define NSXPC_MESSAGE_DESCRIPTION(NAME, SELECTOR, PARAMS, ARGS, ...) \
    ::morvane::xpc_message::describe<Protocol, &Protocol::NAME>(SELECTOR),

#define NSXPC_PROTOCOL_DESCRIPTION_OF(P) \
    const ::morvane::NSXPCProtocolDescription& nsxpcProtocolDescription(const P*)
#define NSXPC_PROXY_OF(P, TARGET) \
    std::shared_ptr<P> nsxpcMakeProxy(const P*, ::morvane::NSXPCProxyTarget TARGET)
#define NSXPC_IMPLEMENT_PROTOCOL(P, MESSAGES, INLINE)                                            \
    class P##Proxy final : public P {                                                            \
        using Protocol = P;                                                                      \
        enum : std::size_t { MESSAGES(NSXPC_MESSAGE_INDEX) };                                    \
                                                                                                 \
      public:                                                                                    \
        explicit P##Proxy(::morvane::NSXPCProxyTarget target) : target_(std::move(target)) {}    \
        MESSAGES(NSXPC_MESSAGE_PROXY)                                                            \
                                                                                                 \
      private:                                                                                   \
        ::morvane::NSXPCProxyTarget target_;                                                     \
    };                                                                                           \
    INLINE NSXPC_PROTOCOL_DESCRIPTION_OF(P) {                                                    \
        using Protocol = P;                                                                      \
        static const ::morvane::NSXPCProtocolDescription& description =                          \
            *new ::morvane::NSXPCProtocolDescription{#P, {MESSAGES(NSXPC_MESSAGE_DESCRIPTION)}}; \
        return description;                                                                      \
    }                                                                                            \
    INLINE NSXPC_PROXY_OF(P, target) {                                                           \
        return std::make_shared<P##Proxy>(std::move(target));                                    \
    }

/// The proxy class and the run-time description of the protocol class P, from its messages.
#define NSXPC_PROTOCOL(P, MESSAGES) NSXPC_IMPLEMENT_PROTOCOL(P, MESSAGES, inline)

/// Declares both in a header. Whatever follows P, such as the attribute that exports them from a
/// library, is put before each declaration.
#define NSXPC_DECLARE_PROTOCOL(P, ...)            \
    __VA_ARGS__ NSXPC_PROTOCOL_DESCRIPTION_OF(P); \
    __VA_ARGS__ NSXPC_PROXY_OF(P, target);

/// Defines in one source file what NSXPC_DECLARE_PROTOCOL(P) declares.
#define NSXPC_DEFINE_PROTOCOL(P, MESSAGES) NSXPC_IMPLEMENT_PROTOCOL(P, MESSAGES, )
