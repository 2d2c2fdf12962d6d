// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// All limits of a connection, each with its reason. What the peer sends is checked against them
/// before anything is allocated for it.
namespace morvane::limits {

/// Bytes of one frame, which is read and held before its contents are examined.
inline constexpr std::uint32_t frameSize = std::uint32_t{1} << 20;
/// Bytes of one message in all its frames. A listing of a million names fits.
inline constexpr std::size_t messageSize = std::size_t{256} << 20;
/// Bytes of one message from a client of a listener, who may be anyone. A request about ten
/// thousand items fits, and so does a list of 1,024 entries, which takes over 8 MiB.
inline constexpr std::size_t clientMessageSize = std::size_t{16} << 20;
/// Bytes of the messages that all clients of one user are sending, until they are decoded.
inline constexpr std::size_t clientMessagesOfOneUser = 2 * clientMessageSize;
/// Bytes that all clients of one user take: requests from their decoding until they are finished,
/// and replies that wait to be read. Two of the largest requests can be decoded at a time.
inline constexpr std::size_t memoryOfOneUser = std::size_t{384} << 20;
/// Bytes of that kind that the clients of all users take together. This is less than the 1 GiB that
/// a service manager allows the service, by what a thousand connections take besides.
inline constexpr std::size_t memoryOfAllUsers = std::size_t{640} << 20;
/// Bytes that a decoded object takes besides its text, estimated generously.
inline constexpr std::size_t decodedObject = 512;
/// Once so many bytes of replies wait for a client, no more of its requests are read: a client that
/// takes no replies cannot request more.
inline constexpr std::size_t bytesOwedWhileReading = std::size_t{64} << 10;
/// Bytes of a request that a client's connection may hold before its right was checked. A larger
/// request is received only after that.
inline constexpr std::size_t clientBufferSize = std::size_t{16} << 10;
/// How long later requests wait for an earlier one that is held up by something that does not
/// answer.
inline constexpr std::chrono::milliseconds patience{50};
/// Threads that carry out requests of one user's clients, or of the application of a private
/// service. If they hang in the kernel, only that user's requests are affected.
inline constexpr std::size_t placesOfOneUser = 16;
inline constexpr std::size_t placesOfTheApplication = 64;
/// Threads that carry out the requests of all users together. The number is well below what a
/// service manager allows a service, even with one more for each request that asks its client
/// whether to go on. A request for which none is free waits.
inline constexpr std::size_t placesOfAllUsers = 512;
/// How many threads wait a moment for more from clients that have just sent something, and for how
/// long. The next request of such a client is then answered without waking a thread.
inline constexpr int threadsThatLinger = 4;
inline constexpr std::chrono::milliseconds lingerTime{10};
/// Bytes and objects into which such a message may be decoded.
inline constexpr std::uint64_t clientMessageBytes = std::uint64_t{64} << 20;
inline constexpr std::uint64_t clientMessageObjects = std::uint64_t{1} << 18;
/// Requests of this process that wait for a reply: a peer that never answers must not fill its
/// memory.
inline constexpr std::size_t requestsInFlight = 4096;
/// Requests of a stream's peer that wait for a reply of this process: each keeps its handler's
/// memory.
inline constexpr std::size_t requestsUnanswered = requestsInFlight;
/// Requests that wait for resume() or for a service to be started again.
inline constexpr std::size_t requestsDeferred = 1024;
/// Bytes that may wait to be sent to a peer that does not read: one large message and some more.
inline constexpr std::size_t outgoingBytes = messageSize + (std::size_t{64} << 20);
/// The time from the first byte of a frame to its last, in either direction, and from the end of a
/// frame to the end of the next one of the same message. A peer that is slower is cut off.
inline constexpr std::chrono::milliseconds frameTime{30000};
/// Bytes of the text of a refusal, which is for people.
inline constexpr std::size_t refusalText = 1024;
/// A private service that has ended this often without answering a request is not started again.
inline constexpr unsigned crashesWithoutAnswer = 4;
/// Clients of a listener. Each one costs a descriptor and some 3 KB while it sends nothing.
struct ClientLimits {
    std::size_t all = 1024;
    std::size_t ofOneUser = 128;
    /// How many of these connections are reserved for users who have hardly any.
    std::size_t kept = 128;
    std::size_t hardlyAny = 4;
    /// After this time, a client that sends nothing and waits for nothing may be disconnected in
    /// favour of another.
    std::chrono::milliseconds idleTime{5000};
    /// Bytes of the messages of all clients.
    std::size_t memory = memoryOfAllUsers;
    /// Threads that carry out the requests of all clients.
    std::size_t places = placesOfAllUsers;
};
/// How long a private service may take to exit once its connection is closed, before it is killed.
inline constexpr std::chrono::milliseconds serviceLeaveTime{2000};

}  // namespace morvane::limits
