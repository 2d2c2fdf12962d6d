#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace morvane {

/// Keeps the writes of one client in their order where they concern the same item, or one that is
/// below the other; all others run side by side. Any thread.
class WriteOrder {
  public:
    /// Held by a write until it is done.
    using Token = std::shared_ptr<void>;
    using Write = std::function<void(Token)>;
    /// Runs a write that had to wait.
    using Runner = std::function<void(std::function<void()>)>;

    explicit WriteOrder(Runner runner) : runner_(std::move(runner)) {}

    /// Runs `write` at once, or has the runner do so when all earlier ones that concern `paths` are
    /// done.
    static void begin(const std::shared_ptr<WriteOrder>& order, std::set<std::string> paths,
                      Write write);

  private:
    struct Entry {
        std::set<std::string> paths;
        /// Empty once it has begun.
        Write write;
    };
    using Entries = std::list<Entry>;

    bool mayBegin(Entries::const_iterator entry) const;
    static Token tokenFor(const std::shared_ptr<WriteOrder>& order, Entries::iterator entry);
    static void done(const std::shared_ptr<WriteOrder>& order, Entries::iterator entry);

    const Runner runner_;
    std::mutex mutex_;
    /// In the order in which they came.
    Entries entries_;
};

}  // namespace morvane
