// SPDX-License-Identifier: MIT
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
///
/// All that a write needs in order to run, and to let the next ones run, is made before it is
/// added: from then on no failure can leave those behind it waiting.
class WriteOrder {
  public:
    using Paths = std::set<std::string, std::less<>>;
    /// Held by a write until it is done.
    using Token = std::shared_ptr<void>;
    using Write = std::function<void(Token)>;
    using Task = std::function<void()>;
    /// Runs a write that had to wait, on another thread. If this throws, the write is dropped.
    using Runner = std::function<void(Task)>;

    explicit WriteOrder(Runner runner) : runner_(std::move(runner)) {}

    /// Runs `write` at once, or has the runner do so when all earlier ones that concern `paths` are
    /// done. Throws what `write` throws, or std::bad_alloc; it does not run then.
    static void begin(const std::shared_ptr<WriteOrder>& order, Paths paths, Write write);

  private:
    class Place;
    struct Entry {
        Paths paths;
        /// The write, until it begins.
        std::list<Task> waiting;
    };
    using Entries = std::list<Entry>;

    bool mayBegin(Entries::const_iterator entry) const;
    void end(Entries::iterator entry) noexcept;

    const Runner runner_;
    std::mutex mutex_;
    /// In the order in which they came.
    Entries entries_;
    /// The writes that may begin. One thread passes them to the runner.
    std::list<Task> free_;
    bool isBeingFreed_ = false;
};

}  // namespace morvane
