#pragma once

#include <MorvaneOperation/platform/linux/FileDescriptor.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "PosixAcl.h"

/// Writes lists to everything below a folder.
namespace morvane {

/// What the items below a folder get.
struct InheritedLists {
    struct Level {
        PosixList file;
        /// For a file that somebody can execute now.
        PosixList executable;
        PosixList folder;
        std::optional<PosixList> folderDefaults;
    };
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    /// For what is in the folder itself, in its sub-folders, and further down.
    std::array<Level, 3> levels;
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
    AclPropagation(const InheritedLists& lists, std::optional<std::uint32_t> onBehalfOf,
                   Progress progress = {},
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
    struct Values;

    Progress progress_;
    std::chrono::milliseconds interval_;
    std::unique_ptr<const Values> values_;
    std::atomic<bool> cancelled_ = false;
    std::atomic<std::uint64_t> items_ = 0;
    std::uint64_t failureCount_ = 0;
    std::vector<Failure> firstFailures_;
};

}  // namespace morvane
