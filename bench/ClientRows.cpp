// SPDX-License-Identifier: MIT
// What a program on the client kit waits for.
#include <MorvaneOperation/MVFileClient.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "FileTree.h"
#include "Rows.h"

namespace bench {
namespace {

using morvane::MVAclEntry;
using morvane::MVFileAcl;
using morvane::MVFileClient;
using morvane::NSErrorRef;
using morvane::NSURL;
using morvane::Result;

/// A main loop that notes how long it was blocked by the longest task, or call of the client.
class TimedLoop {
  public:
    MVFileClient::Executor executor() {
        return [this](std::function<void()> task) {
            {
                const std::lock_guard lock(mutex_);
                tasks_.push_back(std::move(task));
            }
            added_.notify_one();
        };
    }
    /// Runs tasks until `isOver`.
    template <class IsOver>
    void runUntil(IsOver&& isOver) {
        while (!isOver()) {
            auto task = next();
            call([&] {
                task();
                task = nullptr;
            });
        }
    }
    template <class Work>
    void call(Work&& work) {
        longest_ = std::max(longest_, timed(work));
        ++count_;
    }
    double longestMilliseconds() const { return longest_ / 1e6; }
    std::size_t count() const { return count_; }

  private:
    std::function<void()> next() {
        std::unique_lock lock(mutex_);
        added_.wait(lock, [&] { return !tasks_.empty(); });
        auto task = std::move(tasks_.front());
        tasks_.pop_front();
        return task;
    }

    std::mutex mutex_;
    std::condition_variable added_;
    std::deque<std::function<void()>> tasks_;
    double longest_ = 0;
    std::size_t count_ = 0;
};

void expectNone(const NSErrorRef& error) {
    if (error)
        throw std::runtime_error(error->localizedDescription());
}

}  // namespace

Lines mainLoopBlocked(const Options&) {
    constexpr int files = 300000;
    constexpr double limit = 8;
    setenv("MORVANE_LIBEXEC_DIR", MORVANE_LIBEXEC, 1);
    const FileTree tree(files);
    const auto top = NSURL::fileURLWithPath(tree.path().string());
    TimedLoop loop;
    bool isPropagated = false;
    bool isSummed = false;
    std::size_t lists = 0;
    const auto client = MVFileClient::init(loop.executor());

    std::optional<MVFileAcl> list;
    loop.call([&] {
        client->readAcl(top, {}, [&](Result<MVFileAcl> read) {
            expectNone(read ? nullptr : read.error());
            list = *read;
        });
    });
    loop.runUntil([&] { return list.has_value(); });
    loop.call([&] {
        client->propagateAcl(*list, {}, [&](const NSErrorRef& error) {
            expectNone(error);
            isPropagated = true;
        });
        client->sizes({top}, {.progress = [](const auto&) {}}, [&](const auto& sums) {
            expectNone(sums.error);
            isSummed = true;
        });
    });
    // What a person looks at meanwhile.
    bool isLooking = true;
    std::function<void()> look = [&] {
        client->readAcl(top, {}, [&](const Result<MVFileAcl>& read) {
            expectNone(read ? nullptr : read.error());
            ++lists;
            isLooking = !isPropagated || !isSummed;
            if (isLooking)
                look();
        });
    };
    loop.call(look);
    loop.runUntil([&] { return isPropagated && isSummed && !isLooking; });
    auto line = countedLine("main-loop-blocked", loop.longestMilliseconds(), "ms", limit);
    line.note = "the longest of " + std::to_string(loop.count()) + " calls and tasks, with " +
                std::to_string(lists) + " lists read while " + std::to_string(files) +
                " files are propagated to and summed";
    return {line};
}

}  // namespace bench
