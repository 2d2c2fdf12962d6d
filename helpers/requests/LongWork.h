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
        /// How many jobs run at once. Each has a few threads of its own, and its walk has some
        /// more.
        unsigned all = 32;
        unsigned ofOneUser = 8;
        /// This is as many as a file manager requests on its one connection.
        unsigned ofOneClient = 4;
    };
    struct Owner {
        std::int64_t user;
        /// Identifies the client; it is only compared.
        const void* client;
    };

    explicit LongWork(Limits limits) : limits_(limits) {}
    /// The one of this process.
    static const std::shared_ptr<LongWork>& shared();

    /// Runs `job` on a worker, once it is its turn. One that throws has ended. One for which no
    /// thread can be had, while none runs whose end could start it, is dropped. Throws
    /// std::bad_alloc if there is no memory to note the job.
    static void run(const std::shared_ptr<LongWork>& work, Owner owner, std::function<void()> job);
    /// Drops the jobs that wait, and all later ones, at the end of the process.
    void stop();

  private:
    struct Job {
        Owner owner;
        std::function<void()> work;
    };
    using Jobs = std::list<Job>;

    /// Starts the jobs that may run now. Returns those that cannot run, which are to be destroyed
    /// without the lock. To be called with the lock held.
    [[nodiscard]] Jobs start(const std::shared_ptr<LongWork>& self) noexcept;
    Jobs::iterator next();
    /// Runs the job on a worker.
    static void perform(const std::shared_ptr<LongWork>& self, Jobs::iterator job) noexcept;

    const Limits limits_;
    std::mutex mutex_;
    Jobs waiting_;
    /// The jobs that run, which are few. A job is moved here from the others, which needs no
    /// memory.
    Jobs running_;
    bool isStopped_ = false;
};

}  // namespace morvane
