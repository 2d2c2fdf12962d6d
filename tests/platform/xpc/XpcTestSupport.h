// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/xpc/ConnectionCore.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Await.h"
#include "platform/fake/FakeStreamSocket.h"
#include "platform/xpc/EchoProtocol.h"

/// Both ends of a connection over a stream in memory.
namespace morvane {

/// Answers at once, unless a test does so itself.
class EchoService : public Echo {
  public:
    std::function<void(std::string, NSXPCReply<std::string, NSErrorRef>)> onEcho;

    void echo(std::string text, NSXPCReply<std::string, NSErrorRef> reply) override {
        if (onEcho)
            onEcho(std::move(text), std::move(reply));
        else
            reply(std::move(text), nullptr);
    }
    void echoUrls(std::vector<NSURL> urls,
                  NSXPCReply<std::vector<NSURL>, NSErrorRef> reply) override {
        reply(std::move(urls), nullptr);
    }
    void echoData(NSData data, NSXPCReply<NSData> reply) override { reply(std::move(data)); }
};

/// A client's connection to a service in this process; a new stream for each time it connects.
class EchoPair {
  public:
    EchoPair()
        : client(std::make_shared<NSXPCConnection>(std::make_shared<NSXPCConnection::Core>(
              "echo", std::make_unique<FakeServiceEndpoint>(
                          [this](const auto& farEnd) { return accept(farEnd); })))) {
        client->setRemoteObjectInterface(remote);
        client->setInterruptionHandler([this] { ++interruptions; });
        client->setInvalidationHandler([this] { invalidated.set_value(); });
    }
    ~EchoPair() {
        client->invalidate();
        invalidatedFuture.wait_for(watchdog);
        for (auto& server : servers)
            server->invalidate();
    }

    /// The outcome of one echo: the text, or the code of the error.
    struct Outcome {
        std::string text;
        std::int64_t code = 0;
        NSErrorRef error;
    };
    std::future<Outcome> echo(const std::string& text) {
        auto promise = std::make_shared<std::promise<Outcome>>();
        client
            ->remoteObjectProxyWithErrorHandler<Echo>([promise](NSErrorRef error) {
                promise->set_value({{}, error->code(), error});
            })
            ->echo(text, [promise](std::string reply, NSErrorRef) {
                promise->set_value({std::move(reply), 0, nullptr});
            });
        return promise->get_future();
    }

    std::shared_ptr<NSXPCInterface> remote = NSXPCInterface::interfaceWithProtocol<Echo>();
    std::shared_ptr<NSXPCInterface> exported = NSXPCInterface::interfaceWithProtocol<Echo>();
    std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    /// Called with the service's end of each new stream, before it is used.
    std::function<void(FakeStreamSocket&)> onStream;
    /// Called with the service's connection, before it is resumed.
    std::function<void(NSXPCConnection&)> configure;
    bool refuse = false;
    std::atomic<int> interruptions = 0;
    std::atomic<int> streams = 0;
    std::promise<void> invalidated;
    std::shared_future<void> invalidatedFuture = invalidated.get_future().share();
    std::vector<std::shared_ptr<NSXPCConnection>> servers;
    std::shared_ptr<NSXPCConnection> client;

  private:
    bool accept(const std::shared_ptr<FakeStreamSocket>& farEnd) {
        if (refuse)
            return false;
        ++streams;
        if (onStream)
            onStream(*farEnd);
        auto server = std::make_shared<NSXPCConnection>(
            std::make_shared<NSXPCConnection::Core>("client", farEnd));
        server->setExportedInterface(exported);
        server->setExportedObject<Echo>(service);
        if (configure)
            configure(*server);
        server->resume();
        servers.push_back(std::move(server));
        return true;
    }
};

}  // namespace morvane
