// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "OpenItem.h"
#include "TreeWalk.h"

/// Writes lists to everything below a folder.
namespace morvane {

/// Why an item has not got its list.
struct WriteFailure {
    /// An errno value.
    int code = 0;
    /// For people: sentences. Empty where the system's own text says it all.
    Phrase why{};
};

/// Gives one item below a folder what it inherits. Two threads call it at once.
class InheritedWriter {
  public:
    /// What is in the folder itself, in its sub-folders, and further down.
    static constexpr std::size_t levels = inheritedLevels;

    virtual ~InheritedWriter() = default;
    /// What the server of the item's mount has made otherwise of the list that it was given; or a
    /// failure, and the item, whose status is `status`, has what it had.
    virtual Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem& item,
                                                               const struct stat& status,
                                                               std::size_t level) const = 0;
};

/// What a name leads to is written only if it is a file or a folder of the same file system and
/// mount, and never through a link. What vanishes is not missed. Each list of an item is whole at
/// every moment, and an item that cannot get all keeps what it had. One thread uses a propagation;
/// cancel() and what tells of it may be called from any.
class AclPropagation final : private TreeVisitor {
  public:
    /// With `onBehalfOf`, files with further names are left alone unless they are that user's.
    explicit AclPropagation(std::optional<std::uint32_t> onBehalfOf = std::nullopt)
        : onBehalfOf_(onBehalfOf) {}

    /// `folder` is open for reading; `path` is what failures are named by. Once.
    void run(const InheritedWriter& writer, FileDescriptor folder, const std::string& path);

    void cancel() { walk_.cancel(); }
    bool isCancelled() const { return walk_.isCancelled(); }

    /// How many files and folders have been dealt with, failures included.
    std::uint64_t items() const { return items_; }
    /// How many of them have what they inherit.
    std::uint64_t done() const { return done_; }
    WalkFailures failures() const { return walk_.failures(); }
    std::uint64_t failureCount() const { return walk_.failureCount(); }
    /// What the servers of network mounts have made otherwise, each once whichever items it is
    /// about, what is about one identity together.
    EntryLossSet lost() const;
    /// Why items were refused, each reason once, and no more of them than are worth telling.
    std::vector<Phrase> reasons() const;

  private:
    /// This is more than is reported. As the lists of the items are similar, only a server that
    /// invents differences reaches it.
    static constexpr std::size_t maxLost = 2 * maxLossesCarried;
    static constexpr std::size_t maxReasons = 4;

    void visitFiles(const TreeFolder& in, FileNames names) override;
    int visitFolder(const TreeFolder& in, const OpenItem& folder) override;
    int writeFile(const TreeFolder& in, const char* name);
    int write(const TreeFolder& in, const OpenItem& item, const struct stat& status);

    const std::optional<std::uint32_t> onBehalfOf_;
    const InheritedWriter* writer_ = nullptr;
    TreeWalk walk_;
    std::atomic<std::uint64_t> items_ = 0;
    std::atomic<std::uint64_t> done_ = 0;
    mutable std::mutex mutex_;
    EntryLossSet lost_;
    std::set<Phrase> reasons_;
};

}  // namespace morvane
