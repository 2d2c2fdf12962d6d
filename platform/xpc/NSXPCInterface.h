// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/xpc/NSXPCProtocol.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace morvane {

/// Describes what one end of a connection understands: a protocol, and the classes that may be
/// decoded at each position of its messages.
///
///     auto interface = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
///     interface->setClasses({&NSArrayClass, &MVAclEntry::classObject()},
///                           "getAclEntriesWithUrl:reply:", 0, true);
///
/// A position that was never set takes the property-list classes and the position's own type (an
/// array of property-list objects for an array). An interface is configured before its connection
/// is resumed and not changed after.
class MORVANE_EXPORT NSXPCInterface {
  public:
    template <class P>
    static std::shared_ptr<NSXPCInterface> interfaceWithProtocol() {
        return std::make_shared<NSXPCInterface>(protocolDescription<P>());
    }

    /// Replaces the allowed classes of one position. `ofReply`: `argumentIndex` counts the reply's
    /// arguments, otherwise the message's own without the reply callback. Throws
    /// NSInvalidArgumentException for a selector or a position that the protocol does not have.
    void setClasses(NSClassSet classes, std::string_view selector, std::size_t argumentIndex,
                    bool ofReply);
    /// The allowed classes of one position.
    const NSClassSet& classesForSelector(std::string_view selector, std::size_t argumentIndex,
                                         bool ofReply) const;

    const NSXPCProtocolDescription& protocol() const;
    /// The allowed classes of each position of a message, by its index in the protocol.
    const std::vector<NSClassSet>& argumentClasses(std::size_t message) const;
    const std::vector<NSClassSet>& replyClasses(std::size_t message) const;

    /// Use interfaceWithProtocol().
    explicit NSXPCInterface(const NSXPCProtocolDescription& protocol);
    ~NSXPCInterface();

  private:
    const NSXPCMessageClasses& classes(std::size_t message) const;
    std::size_t find(std::string_view selector, std::size_t argumentIndex, bool ofReply) const;

    const NSXPCProtocolDescription& protocol_;
    /// The classes of those messages that have others than the defaults. They are few, which
    /// matters as each connection has an interface of its own.
    std::map<std::size_t, NSXPCMessageClasses> set_;
};

}  // namespace morvane
