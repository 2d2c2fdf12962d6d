#pragma once

#include <MorvaneOperation/EntryLosses.h>
#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "OpenItem.h"
#include "TreeWalk.h"

/// Writes lists to everything below a folder.
namespace morvane {

/// Gives one item below a folder what it inherits. Two threads call it at once.
class InheritedWriter {
  public:
    /// What is in the folder itself, in its sub-folders, and further down.
    static constexpr std::size_t levels = inheritedLevels;

    virtual ~InheritedWriter() = default;
    /// 0, or an errno value and the item, whose status is `status`, has what it had. EREMOTEIO if
    /// it has got a list, of which the server of its mount has made another: in what is put into
    /// `lost`.
    virtual int write(const OpenItem& item, const struct stat& status, std::size_t level,
                      std::vector<EntryLoss>& lost) const = 0;
};

/// What a name leads to is written only if it is a file or a folder of the same file system and
/// mount, and never through a link. What vanishes is not missed. Each list of an item is whole at
/// every moment, and an item that cannot get all keeps what it had. One thread uses a propagation;
/// cancel(), items(), failures() and lost() may be called from any.
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
    WalkFailures failures() const { return walk_.failures(); }
    /// What the servers of network mounts have made otherwise, each once whichever items it is
    /// about, what is about one identity together.
    std::vector<EntryLoss> lost() const;

  private:
    struct LessByText {
        bool operator()(const EntryLoss& a, const EntryLoss& b) const {
            return std::tie(a.who, a.why, a.box) < std::tie(b.who, b.why, b.box);
        }
    };
    /// More than is told of it. The items' lists are alike: only a server that makes differences up
    /// comes so far.
    static constexpr std::size_t maxLost = 2 * maxLossesCarried;

    void visitFiles(const TreeFolder& in, FileNames names) override;
    int visitFolder(const TreeFolder& in, const OpenItem& folder) override;
    int writeFile(const TreeFolder& in, const char* name);
    int write(const TreeFolder& in, const OpenItem& item, const struct stat& status);

    const std::optional<std::uint32_t> onBehalfOf_;
    const InheritedWriter* writer_ = nullptr;
    TreeWalk walk_;
    std::atomic<std::uint64_t> items_ = 0;
    mutable std::mutex mutex_;
    std::set<EntryLoss, LessByText> lost_;
};

}  // namespace morvane
