#include <MorvaneOperation/platform/dispatch/Workers.h>
#include <MorvaneOperation/platform/xpc/ConnectionCore.h>

#include <new>
#include <utility>

/// How a connection's stream is read.
namespace morvane {

void NSXPCConnection::Core::startReading(std::function<void()> reading, StreamSocket& stream) {
    if (keepsNextTask()) {
        runOnWorker(std::move(reading));
    } else {
        stream.whenReadable(std::move(reading));
    }
}

void NSXPCConnection::Core::read(const std::shared_ptr<StreamSocket>& socket,
                                 const std::shared_ptr<Outbox>& outbox) {
    try {
        FrameReader reader(*socket, incoming);
        bool heldBack = false;
        while (!invalidated_) {
            const auto message = reader.next();
            if (!message || invalidated_)
                break;
            if (reader.hasMessageWaiting()) {
                outbox->holdBack();
                heldBack = true;
            } else if (std::exchange(heldBack, false)) {
                outbox->release();
            }
            if (message->kind == FrameKind::request) {
                requests.handle(*message, outbox);
            } else {
                handleReply(*message);
            }
        }
        if (const auto& refused = reader.refused())
            outbox->refuse(refused->id, refused->reason);
    } catch (const std::bad_alloc&) {
        // There is no memory for what the peer sends.
    }
    socket->shutdown();
    streamEnded();
    socket->finish();
}

}  // namespace morvane
