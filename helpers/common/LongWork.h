#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <map>
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

    /// Runs `job` on a worker, once it is its turn. It must not throw.
    static void run(const std::shared_ptr<LongWork>& work, Owner owner, std::function<void()> job);
    /// Drops the jobs that wait, and all that come: for the end of the process.
    void stop();

  private:
    struct Job {
        Owner owner;
        std::function<void()> job;
    };
    /// Starts what may run now. Under the lock.
    void start(const std::shared_ptr<LongWork>& self);
    std::list<Job>::iterator next();
    void ended(const Owner& owner);

    const Limits limits_;
    std::mutex mutex_;
    std::list<Job> waiting_;
    unsigned running_ = 0;
    bool isStopped_ = false;
    std::map<std::int64_t, unsigned> ofUser_;
    std::map<const void*, unsigned> ofClient_;
};

}  // namespace morvane
