// SPDX-License-Identifier: MIT
#pragma once

// What the pieces of code in the documentation take as given: a host's own functions and objects.
#include <MorvaneOperation/MorvaneOperation.h>
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>
#include <MorvaneOperation/platform/host/KDLocalizedString.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>
#include <MorvaneOperation/platform/xpc/NSXPCListener.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#undef NDEBUG
#include <cassert>

namespace given {

using namespace morvane;

// Where the code stands.
struct Host {};

// What a host does with what it hears.
inline void show(const std::string&) {}
inline void show(const NSErrorRef&) {}
inline void redraw() {}
inline void greyOut(const MVAclEntry&, std::int64_t) {}
inline void store(const PosixList&) {}
inline void askTheHelper() {}
inline void runOnMyLoop(const std::function<void()>&) {}
inline bool isMyLoopsThread() {
    return true;
}
inline const std::function<void(NSErrorRef)> onError = [](NSErrorRef) {};

struct View final : NSKeyValueObserver {
    void observeValueForKeyPath(const NSKeyPath&, NSObject&) override { redraw(); }
};
inline View view;

// What a host holds already.
inline const NSURL url = NSURL::fileURLWithPath("/home/me/notes.txt");
inline const NSErrorRef error = NSError::errorWithDomain(NSPOSIXErrorDomain, EACCES);
inline const PosixAcl acl;
inline std::vector<std::shared_ptr<MVAclEntry>> entries;
inline std::vector<std::uint8_t> bytes;
inline std::shared_ptr<NSXPCConnection> connection;
inline std::shared_ptr<MVConnector> connector;
inline const std::shared_ptr<MVFileClient> client = MVFileClient::init();
inline const MVFileAcl shown{url, entries};

// What a service serves: each request is answered by nobody.
struct FileService : MVFileRequest {
    explicit FileService(std::shared_ptr<NSXPCConnection>) {}
#define GIVEN_MESSAGE(NAME, SELECTOR, PARAMETERS, ...) \
    void NAME PARAMETERS override {}
    MVFileRequestMessages(GIVEN_MESSAGE)
#undef GIVEN_MESSAGE
};

}  // namespace given

struct Piece {
    const char* place;
    void (*run)();
};

inline int runAll(std::span<const Piece> pieces) {
    for (const auto& piece : pieces) {
        std::printf("%s\n", piece.place);
        std::fflush(stdout);
        piece.run();
    }
    return 0;
}
