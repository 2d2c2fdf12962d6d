// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

/// What the kernel would let this process do to a file. Supplied by the system, or by a test.
namespace morvane {

class FileAccess {
  public:
    virtual ~FileAccess();
    /// access(2): `mode` is 4 to read plus 2 to write. 0, or the error's number; the C library's
    /// errno is left as the call set it.
    virtual int access(const char* path, int mode) = 0;

    static FileAccess& current();
    /// For tests; null puts the system back.
    static void setCurrent(std::shared_ptr<FileAccess> access);
};

/// Defined by the Linux platform.
std::shared_ptr<FileAccess> systemFileAccess();

}  // namespace morvane
