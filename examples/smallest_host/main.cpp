// SPDX-License-Identifier: MIT
// The smallest host: prints who is named in the access-control list of a file or folder, and takes
// from everyone else what they could do.
//     cmake -S . -B build && cmake --build build && build/smallest_host PATH
#include <MorvaneOperation/MorvaneOperation.h>

#include <cstdio>
#include <future>

using namespace morvane;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: smallest_host PATH\n");
        return 2;
    }
    // A program with a main loop says init() alone, and has the completions there.
    const auto client = MVFileClient::init([](const auto& task) { task(); });
    std::promise<int> ended;
    const auto end = [&](const NSErrorRef& error) {
        if (error)
            std::fprintf(stderr, "smallest_host: %s\n", error->localizedDescription().c_str());
        ended.set_value(error ? 1 : 0);
    };
    const auto edit = [&](const Result<MVFileAcl>& acl) {
        if (!acl)
            return end(acl.error());
        for (const auto& entry : acl->entries) {
            std::printf("%s\n", identityName(*entry).c_str());
            if (identityName(*entry) == "everyone" && !entry->isAcl())
                entry->setPermissionGroup(MVAclGroupNone);
        }
        client->writeAcl(*acl, {}, end);
    };
    client->readAcl(NSURL::fileURLWithPath(argv[1]), {}, edit);
    return ended.get_future().get();
}
