// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

namespace morvane {

/// Runs what takes long (sums of sizes, propagations, large renames) side by side, within limits
/// for each client and each user, and in turns between users: none waits for all that another has
/// asked for. Any thread.
class LongWork {
  public:
    struct Limits {
        /// Jobs at once. Each has few threads of its own, and its walk some more.
        unsigned all = 32;
        unsigned ofOneUser = 8;
        /// What a file manager asks for on its one connection.
        unsigned ofOneClient = 4;
    };
    struct Owner {
        std::int64_t user;
        /// Names the client; only compared.
        const void* client;
    };

    explicit LongWork(Limits limits) : limits_(limits) {}
    /// That of this process.
    static const std::shared_ptr<LongWork>& shared();

    /// Runs `job` on a worker, once it is its turn. One that throws has ended. One for which no
    /// thread can be had, while none runs whose end could start it, is dropped. Throws
    /// std::bad_alloc if there is no memory to note the job.
    static void run(const std::shared_ptr<LongWork>& work, Owner owner, std::function<void()> job);
    /// Drops the jobs that wait, and all that come: for the end of the process.
    void stop();

  private:
    struct Job {
        Owner owner;
        std::function<void()> work;
    };
    using Jobs = std::list<Job>;

    /// Starts what may run now. Returns what cannot run, to be dropped outside the lock. Under the
    /// lock.
    [[nodiscard]] Jobs start(const std::shared_ptr<LongWork>& self) noexcept;
    Jobs::iterator next();
    /// On a worker.
    static void perform(const std::shared_ptr<LongWork>& self, Jobs::iterator job) noexcept;

    const Limits limits_;
    std::mutex mutex_;
    Jobs waiting_;
    /// Few. A job moves here from the others, and needs no memory for it.
    Jobs running_;
    bool isStopped_ = false;
};

}  // namespace morvane
