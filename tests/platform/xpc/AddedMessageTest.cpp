// SPDX-License-Identifier: MIT
#include "XpcTestSupport.h"

namespace morvane {

/// The same protocol in a later version, which has one message more behind the others.
namespace later {

#define LaterEchoMessages(MESSAGE)                                                            \
    EchoMessages(MESSAGE) MESSAGE(                                                            \
        shout, "shout:reply:", (std::string text, NSXPCReply<std::string, NSErrorRef> reply), \
        (std::move(text), std::move(reply)))

class Echo {
  public:
    virtual ~Echo() = default;
    LaterEchoMessages(NSXPC_DECLARE_MESSAGE)
};
NSXPC_PROTOCOL(Echo, LaterEchoMessages)

class EchoService final : public Echo {
  public:
    void echo(std::string text, NSXPCReply<std::string, NSErrorRef> reply) override {
        reply("later " + text, nullptr);
    }
    void echoUrls(std::vector<NSURL> urls,
                  NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) override {
        reply(std::move(urls), nullptr);
    }
    void echoData(NSData data, NSXPCReply<NSData> reply) override { reply(std::move(data)); }
    void shout(std::string text, NSXPCReply<std::string, NSErrorRef> reply) override {
        reply(text + "!", nullptr);
    }
};

}  // namespace later

namespace {

TEST(AnAddedMessage, LeavesAHostOfTheFormerVersionWithALibraryOfTheLaterOne) {
    EchoPair pair;
    // The library brings the interface, and the host its own proxy of what it was built with.
    pair.client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<later::Echo>());
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("x")).text, "x");
}

TEST(AnAddedMessage, LeavesAClientOfTheFormerVersionWithAServiceOfTheLaterOne) {
    EchoPair pair;
    pair.configure = [](NSXPCConnection& server) {
        server.setExportedInterface(NSXPCInterface::interfaceWithProtocol<later::Echo>());
        server.setExportedObject<later::Echo>(std::make_shared<later::EchoService>());
    };
    pair.client->resume();
    EXPECT_EQ(await(pair.echo("x")).text, "later x");
}

TEST(AnAddedMessage, EndsInAnErrorWhereTheServiceDoesNotKnowItAndTheConnectionStands) {
    EchoPair pair;
    pair.client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol<later::Echo>());
    pair.client->resume();
    std::promise<NSErrorRef> ended;
    pair.client
        ->remoteObjectProxyWithErrorHandler<later::Echo>(
            [&](const NSErrorRef& error) { ended.set_value(error); })
        ->shout("x", [&](const std::string&, const NSErrorRef&) { ended.set_value(nullptr); });
    const auto error = await(ended.get_future());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), NSXPCConnectionReplyInvalid);
    EXPECT_EQ(await(pair.echo("next")).text, "next");
}

}  // namespace
}  // namespace morvane
