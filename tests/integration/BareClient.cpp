#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <cstdio>
#include <future>
#include <string>
#include <tuple>

/// Sends each request of the protocol to the privileged helper without having asked for any right:
/// BareClient PATH. Prints a line for each: its selector, and the error's code (0 for none).
namespace {

using namespace morvane;

std::promise<std::int64_t> done;

void finish(const NSErrorRef& error) {
    done.set_value(error ? error->code() : 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    const auto url = NSURL::fileURLWithPath(argv[1]);
    const auto who = uuidOfPosixIdentity(CBPosixUser{0});
    const auto connection =
        NSXPCConnection::initWithMachServiceName(MVPrivilegedHelperName, NSXPCConnectionPrivileged);
    const auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
    connection->setRemoteObjectInterface(requests);
    connection->resume();
    const auto service =
        connection->remoteObjectProxyWithErrorHandler<MVFileRequest>([](NSErrorRef error) {
            std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
            finish(error);
        });
    const auto tell = [&](const char* selector, auto&& send) {
        done = {};
        auto answer = done.get_future();
        send();
        std::printf("%s %lld\n", selector, static_cast<long long>(answer.get()));
    };
    tell("getAclEntriesWithUrl:reply:", [&] {
        service->getAclEntriesWithUrl(url, [](auto, NSErrorRef error) { finish(error); });
    });
    tell("getAclAccessWithUrl:uuid:reply:", [&] {
        service->getAclAccessWithUrl(url, who, [](auto, NSErrorRef error) { finish(error); });
    });
    tell("setAclEntries:url:reply:", [&] { service->setAclEntries({}, url, finish); });
    tell("propagateAclEntries:url:reply:", [&] { service->propagateAclEntries({}, url, finish); });
    tell("renameUrls:names:reply:", [&] {
        service->renameUrls({url}, {"taken"}, [](auto, auto, NSErrorRef error) { finish(error); });
    });
    tell("getSizesWithUrls:reply:",
         [&] { service->getSizesWithUrls({url}, [](auto, NSErrorRef error) { finish(error); }); });
    tell("getContentsOfDirectory:indexPath:reply:", [&] {
        service->getContentsOfDirectory(url, {}, [](auto, NSErrorRef error) { finish(error); });
    });
}
