// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/NSXPCInterface.h>

#include <string>
#include <utility>

namespace morvane {

NSXPCInterface::NSXPCInterface(const NSXPCProtocolDescription& protocol) : protocol_(protocol) {}

NSXPCInterface::~NSXPCInterface() = default;

std::size_t NSXPCInterface::find(std::string_view selector, std::size_t argumentIndex,
                                 bool ofReply) const {
    const auto message = protocol_.indexOfSelector(selector);
    if (!message) {
        throw NSException(NSInvalidArgumentException,
                          "The protocol " + std::string(protocol_.name) + " has no message \"" +
                              std::string(selector) + "\".");
    }
    if (argumentIndex >= classes(*message).of(ofReply).size()) {
        throw NSException(NSInvalidArgumentException,
                          (ofReply ? "The reply of \"" : "The message \"") + std::string(selector) +
                              "\" has no argument " + std::to_string(argumentIndex) + ".");
    }
    return *message;
}

void NSXPCInterface::setClasses(NSClassSet classes, std::string_view selector,
                                std::size_t argumentIndex, bool ofReply) {
    const auto message = find(selector, argumentIndex, ofReply);
    auto& set = set_.try_emplace(message, protocol_.messages[message]).first->second;
    set.of(ofReply)[argumentIndex] = std::move(classes);
}

const NSClassSet& NSXPCInterface::classesForSelector(std::string_view selector,
                                                     std::size_t argumentIndex,
                                                     bool ofReply) const {
    return classes(find(selector, argumentIndex, ofReply)).of(ofReply)[argumentIndex];
}

const NSXPCProtocolDescription& NSXPCInterface::protocol() const {
    return protocol_;
}

const std::vector<NSClassSet>& NSXPCInterface::argumentClasses(std::size_t message) const {
    return classes(message).arguments;
}

const std::vector<NSClassSet>& NSXPCInterface::replyClasses(std::size_t message) const {
    return classes(message).replyArguments;
}

const NSXPCMessageClasses& NSXPCInterface::classes(std::size_t message) const {
    const auto set = set_.find(message);
    return set == set_.end() ? protocol_.messages[message] : set->second;
}

}  // namespace morvane
