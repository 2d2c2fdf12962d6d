// SPDX-License-Identifier: MIT
// The smallest host: prints who is named in the access-control list of a file or folder.
//     cmake -S . -B build && cmake --build build && build/smallest_host PATH
#include <MorvaneOperation/MorvaneOperation.h>

#include <cstdio>
#include <future>

using namespace morvane;

class Connector final : public MVConnector {
  public:
    using MVConnector::MVConnector;
    static const NSClass& classObject() {
        static const NSClass c{"Connector", &MVConnector::classObject(), nullptr};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }

    // What may come back in the first argument of each reply, and of each callback.
    EncodableClasses remoteEncodableClasses() override {
        return {{"getAclEntriesWithUrl:reply:",
                 {&NSArrayClass, &MVAclEntry::classObject(), &MVTreeNode::classObject(),
                  &MVAclPermission::classObject()}}};
    }
    EncodableClasses exportedEncodableClasses() override { return {}; }

    // Long requests ask whether to go on.
    void progressWithReply(NSXPCReply<bool> reply) override { reply(true); }
    void updateFileSizes(std::vector<std::shared_ptr<MVFileSizeItem>>,
                         NSXPCReply<bool> reply) override {
        reply(true);
    }
};

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: smallest_host PATH\n");
        return 2;
    }
    const auto connector = MVConnector::init<Connector>();
    // Each request ends once: in its reply, or in the error handler.
    std::promise<int> ended;
    const auto fail = [&](const NSErrorRef& error) {
        std::fprintf(stderr, "smallest_host: %s\n", error->localizedDescription().c_str());
        ended.set_value(1);
    };
    const auto service =
        connector->connection()->remoteObjectProxyWithErrorHandler<MVFileRequest>(fail);
    service->getAclEntriesWithUrl(
        NSURL::fileURLWithPath(argv[1]),
        [&](const std::vector<std::shared_ptr<MVAclEntry>>& entries, const NSErrorRef& error) {
            if (error)
                return fail(error);
            for (const auto& entry : entries)
                std::printf("%s\n", entry->identity()->name().c_str());
            ended.set_value(0);
        });
    return ended.get_future().get();
}
