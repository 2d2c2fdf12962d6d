// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/NSXPCCoding.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// \file
/// What a request is while the program runs: its way there and back, and what its protocol says of
/// it. NSXPCProtocol.h makes all of it from the declarations of the messages.

namespace morvane {

/// The last parameter of every message. Called once, from any thread; a second call does nothing.
/// Letting go of it uncalled, or calling it with what cannot be encoded, ends the request in the
/// sender's error handler.
template <class... T>
using NSXPCReply = std::function<void(T...)>;

/// The way back of one received request. Any thread.
class MORVANE_EXPORT NSXPCReplyPort {
  public:
    virtual ~NSXPCReplyPort();
    /// The arguments are decoded, and the object's member function is called next.
    virtual void willCallObject() {}
    /// True for the first caller, who then answers.
    virtual bool claim() = 0;
    virtual void sendReply(NSDataPieces archive) = 0;
    /// Answers that no reply will come, and why.
    virtual void sendRefusal(std::string_view reason) = 0;
};

/// What waits for the reply of one sent request. Used by one thread at a time; ends with exactly
/// one of deliver() and fail().
class MORVANE_EXPORT NSXPCReplyReceiver {
  public:
    virtual ~NSXPCReplyReceiver();
    /// Reads the reply's arguments. Throws NSXPCArgumentFailure.
    virtual void decode(NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes) = 0;
    /// Calls the reply callback with what decode() has read.
    virtual void deliver() = 0;
    virtual void fail(NSErrorRef error) = 0;
};

/// Where a proxy's messages go.
class MORVANE_EXPORT NSXPCRequestSink {
  public:
    virtual ~NSXPCRequestSink();
    /// `message` is an index into the protocol's messages. The receiver ends exactly once, on
    /// another thread, unless this throws.
    virtual void sendRequest(std::size_t message, NSData archive,
                             std::unique_ptr<NSXPCReplyReceiver> receiver) = 0;
};

/// The classes of each position of a message, without the reply callback.
struct NSXPCMessageClasses {
    std::vector<NSClassSet> arguments;
    std::vector<NSClassSet> replyArguments;

    std::vector<NSClassSet>& of(bool reply) { return reply ? replyArguments : arguments; }
    const std::vector<NSClassSet>& of(bool reply) const {
        return reply ? replyArguments : arguments;
    }
};

/// With the default classes.
struct NSXPCMessageDescription : NSXPCMessageClasses {
    std::string_view selector;
    /// Decodes the arguments, then calls the message's member function of `object`, which is a
    /// pointer to the protocol class. Throws NSXPCArgumentFailure before the object is touched,
    /// and whatever the member function throws.
    void (*dispatch)(void* object, NSKeyedUnarchiver& coder, const std::vector<NSClassSet>& classes,
                     const std::shared_ptr<NSXPCReplyPort>& port);
    /// Replies with the error and with nothing else, without a look at the arguments. A reply that
    /// has no place for an error becomes a refusal.
    void (*endWithError)(const std::shared_ptr<NSXPCReplyPort>& port, const NSErrorRef& error);
};

/// A protocol at run time. Lives as long as the process.
struct NSXPCProtocolDescription {
    std::string_view name;
    std::vector<NSXPCMessageDescription> messages;

    /// The index of the message; empty if the protocol has none of that selector.
    std::optional<std::size_t> indexOfSelector(std::string_view selector) const {
        for (std::size_t i = 0; i != messages.size(); ++i) {
            if (messages[i].selector == selector)
                return i;
        }
        return std::nullopt;
    }
    /// Protocols are the same by name: library and host may each hold a description of one.
    bool isSameProtocol(const NSXPCProtocolDescription& other) const { return name == other.name; }
};

/// An argument was refused by decoding.
class MORVANE_EXPORT NSXPCArgumentFailure final : public std::exception {
  public:
    NSXPCArgumentFailure(std::size_t argument, const NSArchiveFailure& reason);
    ~NSXPCArgumentFailure() override;
    /// What the archive said.
    const NSErrorRef& reason() const { return reason_; }
    /// Names the argument's position, then the reason.
    const char* what() const noexcept override { return what_.c_str(); }

  private:
    NSErrorRef reason_;
    std::string what_;
};

}  // namespace morvane
