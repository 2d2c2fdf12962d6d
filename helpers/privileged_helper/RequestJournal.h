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

/// Whose request it is.
struct RequestClient {
    std::int64_t user = -1;
    std::int64_t process = -1;
    /// The user whose lines its refusals take, if that is another.
    std::optional<std::int64_t> accountable{};
};

/// What the log is told of all requests of the helper, and which of them are worked on. Each line
/// begins with what has become of the request, because loggers cut long lines:
///
///     begun: uid 1000 pid 4711: propagateAclEntries:url:reply: "/srv/share"
///     failed: uid 1000 pid 4711: propagateAclEntries:url:reply: WHY "/srv/share"
///
/// Work that has begun is told at once, and its end before its reply is sent. Anyone can be
/// refused, so a user's refusals are told only now and then, and the others counted. Any thread.
class RequestJournal : public std::enable_shared_from_this<RequestJournal> {
  public:
    /// Takes one line. Called under a lock, one line after the other.
    using Sink = std::function<void(const std::string& line)>;
    using Time = std::chrono::steady_clock::time_point;
    using Clock = std::function<Time()>;

    /// Refusals of one user that are told one after the other.
    static constexpr unsigned refusalsAtOnce = 8;
    /// How long a user waits for another line when these have been told.
    static constexpr std::chrono::seconds refusalInterval{10};
    /// Users whose refusals are told apart; all further ones have the lines of one. Whoever has
    /// many user numbers does not get many lines.
    static constexpr std::size_t usersRemembered = 256;

    /// A request that is worked on until the last reference to this has gone.
    class Request {
      public:
        Request(std::shared_ptr<RequestJournal> journal, const RequestClient& client,
                std::string_view selector, std::vector<std::string> items);
        /// One that has not ended by then is told to have been dropped.
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
        void tell(std::string_view outcome, std::string_view why) const;

        const std::shared_ptr<RequestJournal> journal_;
        const RequestClient client_;
        const std::string selector_;
        const std::vector<std::string> items_;
        bool hasEnded_ = false;
    };

    explicit RequestJournal(Sink sink, Clock clock = std::chrono::steady_clock::now);

    void refused(const RequestClient& client, std::string_view selector, std::string_view why);
    /// Tells that it has begun; `items` are what it is about, fit for the log, each for a line.
    std::shared_ptr<Request> begin(const RequestClient& client, std::string_view selector,
                                   std::vector<std::string> items);

    /// How many requests have begun so far, if each of them has ended. One that was answered may
    /// still be held by a file system; nobody waits for it.
    std::optional<std::uint64_t> begunWhileNoneRuns() const;

    /// Tells how many refusals were left out, of the users who may have a line again. To be called
    /// now and then.
    void tellLeftOut();
    /// At the end of the process: waits until no request is worked on, for so long at most, then
    /// tells which are, and how many refusals were left out.
    void close(std::chrono::milliseconds patience);

  private:
    struct Refusals {
        /// When all lines may be told again: the later, the fewer are left.
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

/// `text` in printable ASCII without quotation marks, the rest in hexadecimal.
std::string escapedForLog(std::string_view text);

}  // namespace morvane
