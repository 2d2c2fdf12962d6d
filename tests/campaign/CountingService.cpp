// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <map>
#include <mutex>

#include "CountedProtocol.h"

/// Sees that each sender's numbers only grow.
namespace {

using namespace morvane;

class Service final : public Counted {
  public:
    void count(std::int64_t number, std::int64_t sender,
               NSXPCReply<std::int64_t, NSErrorRef> reply) override {
        std::int64_t disorder = 0;
        {
            const std::lock_guard lock(mutex_);
            auto& last = last_[sender];
            if (number <= last)
                ++disorder_;
            last = number;
            disorder = disorder_;
        }
        reply(disorder, nullptr);
    }

  private:
    std::mutex mutex_;
    std::map<std::int64_t, std::int64_t> last_;
    std::int64_t disorder_ = 0;
};

}  // namespace

int main() {
    const auto listener = NSXPCListener::serviceListener();
    if (!listener)
        return 1;
    listener->setNewConnectionHandler([](const std::shared_ptr<NSXPCConnection>& connection) {
        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol<Counted>());
        connection->setExportedObject<Counted>(std::make_shared<Service>());
        connection->resume();
        return true;
    });
    return listener->run();
}
