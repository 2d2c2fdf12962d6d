// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace morvane {

/// The client that has made a request.
struct RequestClient {
    std::int64_t user = -1;
    std::int64_t process = -1;
    /// The user whose lines its refusals take, if that is another.
    std::optional<std::int64_t> accountable{};
};

/// What a request is about: so many items, each escaped for the log. They are asked for one by one,
/// so that the texts of all of them are never held.
struct RequestItems {
    std::size_t count = 0;
    std::function<std::string(std::size_t index)> text;
};

/// Logs all requests of the helper, and knows which of them are being carried out. Each line begins
/// with what has become of the request, because loggers cut long lines:
///
///     begun: uid 1000 pid 4711: propagateAclEntries:url:reply: "/srv/share"
///     failed: uid 1000 pid 4711: propagateAclEntries:url:reply: WHY "/srv/share"
///
/// The begin of work is logged at once, each item in a line of its own, and its end before its
/// reply is sent, with the first item and how many more there were. Anyone can be refused, so only
/// some of a user's refusals are logged, and the others counted. It may be used on any thread.
class RequestJournal : public std::enable_shared_from_this<RequestJournal> {
  public:
    /// Takes one line. Called under a lock, one line after the other.
    using Sink = std::function<void(const std::string& line)>;
    using Time = std::chrono::steady_clock::time_point;
    using Clock = std::function<Time()>;

    /// How many refusals of one user are logged one after the other.
    static constexpr unsigned refusalsAtOnce = 8;
    /// After how long another one is logged when so many have been.
    static constexpr std::chrono::seconds refusalInterval{10};
    /// How many bytes the lines may have that log the begin of one request; the other items are
    /// counted. The largest renaming of names of an ordinary length is logged whole.
    static constexpr std::size_t bytesOfOneRequest = std::size_t{4} << 20;
    /// How many users have lines of their own; all further ones share those of one. So whoever has
    /// many user ids does not get many lines.
    static constexpr std::size_t usersRemembered = 256;

    /// A request that is being carried out until the last reference to this is released.
    class Request {
      public:
        Request(std::shared_ptr<RequestJournal> journal, const RequestClient& client,
                std::string_view selector, const RequestItems& items);
        /// A request that has not ended by then is logged as dropped.
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

        // The first of the two counts.
        void done();
        void failed(std::string_view why);

      private:
        friend class RequestJournal;
        /// Under the journal's lock.
        void end(std::string_view outcome, std::string_view why);
        std::string line(std::string_view outcome, std::string_view why) const;
        void tellBegin(const RequestItems& items) const;

        const std::shared_ptr<RequestJournal> journal_;
        const RequestClient client_;
        const std::string selector_;
        /// The first item, and how many more there are.
        const std::string items_;
        bool hasEnded_ = false;
    };

    explicit RequestJournal(Sink sink, Clock clock = std::chrono::steady_clock::now);

    void refused(const RequestClient& client, std::string_view selector, std::string_view why);
    /// Logs that a request has begun.
    std::shared_ptr<Request> begin(const RequestClient& client, std::string_view selector,
                                   const RequestItems& items);

    /// How many requests have begun so far, if all of them have ended. A file system may still hold
    /// one that was answered; nobody waits for it.
    std::optional<std::uint64_t> begunWhileNoneRuns() const;

    /// Logs how many refusals were left out, for the users who may have a line again. To be called
    /// now and then.
    void tellLeftOut();
    /// To be called at the end of the process: waits until no request is being carried out, for so
    /// long at most, then logs which still are, and how many refusals were left out.
    void close(std::chrono::milliseconds patience);

  private:
    struct Refusals {
        /// When all lines are available again: the later this is, the fewer are left.
        Time whole;
        std::uint64_t leftOut = 0;
    };
    /// Takes one of the lines that are left; false if there is none.
    bool takeLine(Refusals& refusals) const;
    void tellLeftOut(std::int64_t user, Refusals& refusals);
    std::map<std::int64_t, Refusals>::iterator refusalsOf(std::int64_t user);

    const Sink sink_;
    const Clock clock_;
    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::map<std::int64_t, Refusals> refusals_;
    std::set<Request*> running_;
    std::uint64_t begun_ = 0;
};

/// `text` in printable ASCII without quotation marks, the rest in hexadecimal; cut to as many bytes
/// as a path can have.
std::string escapedForLog(std::string_view text);

}  // namespace morvane
