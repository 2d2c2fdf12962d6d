// SPDX-License-Identifier: MIT
#include "SizeWalker.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <utility>

namespace morvane {
namespace {

/// A link at the end of the path is an item of its own, here as everywhere.
constexpr int itemFlags = O_PATH | O_NOFOLLOW;

std::int64_t sum(std::int64_t a, std::int64_t b) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    return a > most - b ? most : a + b;  // sparse files can claim more than there is
}

std::int64_t sizeOf(const struct statx& status) {
    return static_cast<std::int64_t>(status.stx_size);
}

}  // namespace

SizeWalker::SizeWalker(std::vector<std::string> paths, PathRule rule)
    : paths_(std::move(paths)),
      rule_(rule),
      states_(paths_.size()),
      none_(static_cast<Index>(paths_.size())) {
    if (paths_.size() < 2)
        return;
    indexes_.reserve(paths_.size());
    for (Index i = 0; i != none_; ++i)
        indexes_.emplace(paths_[i], i);
}

void SizeWalker::run() {
    for (Index i = 0; i != none_; ++i) {
        if (states_[i].isDone)
            continue;
        walk(i);
        if (isCancelled())
            return;
        const std::lock_guard lock(mutex_);
        for (const auto met : met_)
            states_[met].isDone = true;
        met_.clear();
    }
}

std::vector<SizeWalker::Sum> SizeWalker::sums() const {
    std::vector<Sum> sums;
    sums.reserve(states_.size());
    const std::lock_guard lock(mutex_);
    for (const auto& state : states_)
        sums.push_back({state.bytes, state.isDone});
    return sums;
}

void SizeWalker::walk(Index path) {
    if (isCancelled())
        return;
    hardLinks_.clear();
    auto& state = states_[path];
    state.within = none_;
    state.depth = 0;
    state.isMet = true;
    met_.push_back(path);
    const auto fail = [&](int code, bool notReached = false) {
        state.bytes = unknown;
        walk_.failed(paths_[path], code, notReached);
    };
    const auto opened = openPath(paths_[path], itemFlags, rule_);
    if (!opened)
        return fail(opened.error());
    const int item = opened->get();
    struct statx status;
    if (const int code = statusAt(item, "", status, true); code != 0)
        return fail(code);
    ++ownItems_;
    state.bytes = S_ISREG(status.stx_mode) ? sizeOf(status) : 0;
    if (!S_ISDIR(status.stx_mode))
        return;
    auto folder = openBelow(item, ".", O_RDONLY | O_DIRECTORY | O_NONBLOCK);
    if (!folder)
        return fail(errno, true);
    asksFileSystem_ = !knowsSizes(folder.get());
    walk_.run(std::move(folder), paths_[path], *this, path);
}

SizeWalker::Index SizeWalker::meet(const TreeFolder& in, const char* name) {
    const auto& state = states_[in.part()];
    // Only what is right inside the folder of a sum is called as the paths tell.
    if (indexes_.empty() || in.depth() != state.depth || state.depth == mostWithin)
        return in.part();
    auto path = paths_[in.part()];
    if (!path.ends_with('/'))
        path += '/';
    const auto found = indexes_.find(path += name);
    if (found == indexes_.end() || states_[found->second].isMet.exchange(true))
        return in.part();
    const std::lock_guard lock(mutex_);
    met_.push_back(found->second);
    return found->second;
}

std::uint32_t SizeWalker::partOf(const TreeFolder& in, const char* name) {
    const auto part = meet(in, name);
    if (part != in.part()) {
        auto& state = states_[part];
        state.within = in.part();
        state.depth = in.depth() + 1;
        state.bytes = 0;
    }
    return part;
}

void SizeWalker::missFolder(const TreeFolder& in, const char* name) {
    // It stays unknown, and is not tried, and counted as a failure, again.
    meet(in, name);
}

void SizeWalker::visitFiles(const TreeFolder& in, FileNames names) {
    std::int64_t bytes = 0;
    names.forEach([&](const char* name) {
        struct statx status;
        int code = statusAt(in.descriptor(), name, status);
        // A file on which another file system is mounted is not examined.
        if (code == 0 && asksFileSystem_ && idOf(status).isOnMountOf(in.id()))
            code = statusAt(in.descriptor(), name, status, true);
        if (code != 0) {
            if (!hasGone(code))
                in.failed(name, code);
        } else if (S_ISREG(status.stx_mode) && idOf(status).isOnMountOf(in.id())) {
            if (status.stx_nlink > 1)
                addLinked(status, in.part());
            else
                bytes = sum(bytes, sizeOf(status));
        }
        return !in.isCancelled();
    });
    addBytes(bytes, in.part(), none_);
}

void SizeWalker::addBytes(std::int64_t bytes, Index to, Index end) {
    for (; to != end; to = states_[to].within) {
        auto& total = states_[to].bytes;
        auto before = total.load();
        while (!total.compare_exchange_weak(before, sum(before, bytes))) {
        }
    }
}

void SizeWalker::addLinked(const struct statx& status, Index to) {
    const std::lock_guard lock(mutex_);
    // A sum that has counted it is only within others that have.
    auto end = to;
    while (end != none_ && hardLinks_.insert({status.stx_ino, end}).second)
        end = states_[end].within;
    addBytes(sizeOf(status), to, end);
}

}  // namespace morvane
