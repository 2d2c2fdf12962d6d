#pragma once

#include <MorvaneOperation/InheritedAcl.h>
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Writes lists to everything below a folder.
namespace morvane {

/// An open item: `path` is empty, or leads to it where the descriptor itself gives no right to it
/// (O_PATH).
struct OpenItem {
    int descriptor = -1;
    std::string path;
};

/// Gives one item below a folder what it inherits. Two threads call it at once.
class InheritedWriter {
  public:
    /// What is in the folder itself, in its sub-folders, and further down.
    static constexpr std::size_t levels = inheritedLevels;

    virtual ~InheritedWriter() = default;
    /// 0, or an errno value and the item, whose status is `status`, has what it had.
    virtual int write(const OpenItem& item, const struct stat& status, std::size_t level) const = 0;
};

/// Two threads walk, by descriptors: what a name leads to is written only if it is a file or a
/// folder of the same file system, and never through a link. What vanishes is not missed. Each list
/// of an item is whole at every moment, and an item that cannot get all keeps what it had. One
/// thread uses a propagation; cancel() may be called from any.
class AclPropagation {
  public:
    /// Told on the thread that called run(), about once in `interval`, how many items have been
    /// dealt with. False stops.
    using Progress = std::function<bool(std::uint64_t items)>;

    struct Failure {
        std::string path;
        int code = 0;
    };

    /// With `onBehalfOf`, files with further names are left alone unless they are that user's.
    AclPropagation(std::unique_ptr<const InheritedWriter> writer,
                   std::optional<std::uint32_t> onBehalfOf, Progress progress = {},
                   std::chrono::milliseconds interval = std::chrono::milliseconds(250));
    ~AclPropagation();

    /// `folder` is open for reading; `path` is what failures are told by.
    void run(FileDescriptor folder, std::string path);

    void cancel() { cancelled_ = true; }
    bool isCancelled() const { return cancelled_; }

    std::uint64_t items() const { return items_; }
    std::uint64_t failureCount() const { return failureCount_; }
    /// No more than are worth telling.
    const std::vector<Failure>& firstFailures() const { return firstFailures_; }

  private:
    class Walk;

    Progress progress_;
    std::chrono::milliseconds interval_;
    const std::unique_ptr<const InheritedWriter> writer_;
    const std::optional<std::uint32_t> onBehalfOf_;
    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> items_ = 0;
    std::uint64_t failureCount_ = 0;
    std::vector<Failure> firstFailures_;
};

}  // namespace morvane
