// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>
#include <signal.h>
#include <unistd.h>

#include <string_view>

#include "EchoProtocol.h"

/// A service that echoes: a private one, or an activated one if it is given an argument, which
/// holds its clients' processes if that is "--holding". Some texts make it end badly.
namespace {

using namespace morvane;

class Service final : public Echo {
  public:
    explicit Service(std::weak_ptr<NSXPCConnection> client) : client_(std::move(client)) {}

    void echo(std::string text, NSXPCReply<std::string, NSErrorRef> reply) override {
        if (text == "die")
            kill(getpid(), SIGKILL);
        while (text == "hang")
            pause();
        if (text == "since")
            text = std::to_string(client_.lock()->processStartTime());
        if (text == "pid")
            text = std::to_string(getpid());
        reply(std::move(text), nullptr);
    }
    void echoUrls(std::vector<NSURL> urls,
                  NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) override {
        reply(std::move(urls), nullptr);
    }
    void echoData(NSData data, NSXPCReply<NSData> reply) override { reply(std::move(data)); }

  private:
    const std::weak_ptr<NSXPCConnection> client_;
};

}  // namespace

int main(int count, char** arguments) {
    const auto listener =
        count > 1 ? NSXPCListener::activatedListener() : NSXPCListener::serviceListener();
    if (!listener)
        return 1;
    listener->setIdleTimeout(1);
    if (count > 1 && arguments[1] == std::string_view("--holding"))
        listener->holdClientProcesses();
    listener->setNewConnectionHandler([](const std::shared_ptr<NSXPCConnection>& connection) {
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Echo>());
        connection->setExportedObject<Echo>(std::make_shared<Service>(connection));
        connection->resume();
        return true;
    });
    return listener->run();
}
