// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// Every limit of a connection, with its reason. What the peer sends is compared with these before
/// anything is allocated for it.
namespace morvane::limits {

/// One frame: what is read and held before its contents are looked at.
inline constexpr std::uint32_t frameSize = std::uint32_t{1} << 20;
/// One message, over all its frames: a listing of a million names fits.
inline constexpr std::size_t messageSize = std::size_t{256} << 20;
/// One message of a client of a listener, who may be anyone: a request about ten thousand items
/// fits, and so does a list of 1,024 entries, which has over 8 MiB.
inline constexpr std::size_t clientMessageSize = std::size_t{16} << 20;
/// Messages that are being received, until they are decoded, of all clients of one user.
inline constexpr std::size_t clientMessagesOfOneUser = 2 * clientMessageSize;
/// What all clients of one user have: requests from their decoding until they are done with, and
/// replies that wait to be taken. Two requests of the dearest kind can be decoded at a time.
inline constexpr std::size_t memoryOfOneUser = std::size_t{384} << 20;
/// All of that together, of all users: below what a service manager allows a service that has 1
/// GiB, by what a thousand connections take that have nothing of it.
inline constexpr std::size_t memoryOfAllUsers = std::size_t{640} << 20;
/// What a decoded object takes, generously, beside its text.
inline constexpr std::size_t decodedObject = 512;
/// Bytes of replies that a client has not taken from which on it is not read: one that takes none
/// cannot ask for more of them.
inline constexpr std::size_t bytesOwedWhileReading = std::size_t{64} << 10;
/// What a client's connection may hold of a request whose right has not been seen: what is larger
/// is received only then.
inline constexpr std::size_t clientBufferSize = std::size_t{16} << 10;
/// How long the requests behind one wait for it, if it meets something that does not answer.
inline constexpr std::chrono::milliseconds patience{50};
/// Threads that are with the requests of one user's clients, or of the application of a private
/// service: what the kernel holds of them is missed by that user alone.
inline constexpr std::size_t placesOfOneUser = 16;
inline constexpr std::size_t placesOfTheApplication = 64;
/// Those of all users together: well below what a service manager allows a service, with a thread
/// more for each that asks a client whether to go on. Who finds none waits.
inline constexpr std::size_t placesOfAllUsers = 512;
/// Threads that wait for a moment with clients that have just said something, and how long: one in
/// conversation is answered without a thread being woken.
inline constexpr int threadsThatLinger = 4;
inline constexpr std::chrono::milliseconds lingerTime{10};
/// What such a message may unfold into: bytes and objects.
inline constexpr std::uint64_t clientMessageBytes = std::uint64_t{64} << 20;
inline constexpr std::uint64_t clientMessageObjects = std::uint64_t{1} << 18;
/// Requests of ours that wait for a reply: a peer that never answers must not fill our memory.
inline constexpr std::size_t requestsInFlight = 4096;
/// Requests of a stream's peer that wait for our reply: each holds its handler's memory.
inline constexpr std::size_t requestsUnanswered = requestsInFlight;
/// Requests that wait for resume() or for a service to be started again.
inline constexpr std::size_t requestsDeferred = 1024;
/// Bytes that wait to be sent to a peer that does not read: one large message and some more.
inline constexpr std::size_t outgoingBytes = messageSize + (std::size_t{64} << 20);
/// From a frame's first byte to its last, either way, and from the end of a frame to that of the
/// next of its message: a peer that is slower holds us up.
inline constexpr std::chrono::milliseconds frameTime{30000};
/// A refusal's text, for people.
inline constexpr std::size_t refusalText = 1024;
/// A private service that ended this often without having answered a request is not started again.
inline constexpr unsigned crashesWithoutAnswer = 4;
/// Clients of a listener: one costs a descriptor and some 3 KB while it says nothing.
struct ClientLimits {
    std::size_t all = 1024;
    std::size_t ofOneUser = 128;
    /// The last places of all, which are for users who have hardly any.
    std::size_t kept = 128;
    std::size_t hardlyAny = 4;
    /// After which time a client that says nothing and waits for nothing may have to make room for
    /// another.
    std::chrono::milliseconds idleTime{5000};
    /// Bytes of their messages.
    std::size_t memory = memoryOfAllUsers;
    /// Threads that are with their requests.
    std::size_t places = placesOfAllUsers;
};
/// How long a private service may take to leave once its connection is closed, before it is killed.
inline constexpr std::chrono::milliseconds serviceLeaveTime{2000};

}  // namespace morvane::limits
