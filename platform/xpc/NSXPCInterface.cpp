#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/NSXPCInterface.h>

#include <string>
#include <utility>

namespace morvane {

NSXPCInterface::NSXPCInterface(const NSXPCProtocolDescription& protocol) : protocol_(protocol) {
    classes_.reserve(protocol.messages.size());
    for (const auto& message : protocol.messages) {
        classes_.push_back({message.arguments, message.replyArguments});
    }
}

NSXPCInterface::~NSXPCInterface() = default;

const NSClassSet& NSXPCInterface::at(std::string_view selector, std::size_t argumentIndex,
                                     bool ofReply) const {
    const auto message = protocol_.indexOfSelector(selector);
    if (!message) {
        throw NSException(NSInvalidArgumentException,
                          "The protocol " + std::string(protocol_.name) + " has no message \"" +
                              std::string(selector) + "\".");
    }
    const auto& classes = classes_[*message];
    const auto& positions = ofReply ? classes.replyArguments : classes.arguments;
    if (argumentIndex >= positions.size()) {
        throw NSException(NSInvalidArgumentException,
                          (ofReply ? "The reply of \"" : "The message \"") + std::string(selector) +
                              "\" has no argument " + std::to_string(argumentIndex) + ".");
    }
    return positions[argumentIndex];
}

void NSXPCInterface::setClasses(NSClassSet classes, std::string_view selector,
                                std::size_t argumentIndex, bool ofReply) {
    const_cast<NSClassSet&>(at(selector, argumentIndex, ofReply)) = std::move(classes);
}

const NSClassSet& NSXPCInterface::classesForSelector(std::string_view selector,
                                                     std::size_t argumentIndex,
                                                     bool ofReply) const {
    return at(selector, argumentIndex, ofReply);
}

}  // namespace morvane
