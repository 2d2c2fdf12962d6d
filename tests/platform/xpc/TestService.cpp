#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <signal.h>
#include <unistd.h>

#include "EchoProtocol.h"

/// A service that echoes: a private one, or an activated one if it is given an argument. Some texts
/// make it end badly.
namespace {

using namespace morvane;

class Service final : public Echo {
  public:
    void echo(std::string text, NSXPCReply<std::string, NSErrorRef> reply) override {
        if (text == "die")
            kill(getpid(), SIGKILL);
        while (text == "hang")
            pause();
        if (text == "pid")
            text = std::to_string(getpid());
        reply(std::move(text), nullptr);
    }
    void echoUrls(std::vector<NSURL> urls,
                  NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) override {
        reply(std::move(urls), nullptr);
    }
    void echoData(NSData data, NSXPCReply<NSData> reply) override { reply(std::move(data)); }
};

}  // namespace

int main(int count, char**) {
    const auto listener =
        count > 1 ? NSXPCListener::activatedListener() : NSXPCListener::serviceListener();
    if (!listener)
        return 1;
    listener->setIdleTimeout(1);
    listener->setNewConnectionHandler([](const std::shared_ptr<NSXPCConnection>& connection) {
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setExportedObject<Echo>(std::make_shared<Service>());
        connection->resume();
        return true;
    });
    return listener->run();
}
