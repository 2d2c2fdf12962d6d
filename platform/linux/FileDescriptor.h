// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>

#include <utility>

namespace morvane {

/// An open descriptor, which is closed when its owner is destroyed. It can be moved but not copied.
/// Whoever opens one makes it close-on-exec in the same call.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }

    int get() const { return fd_; }
    /// Returns the descriptor, which stays open and is the caller's from now on.
    int release() { return std::exchange(fd_, -1); }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

}  // namespace morvane
