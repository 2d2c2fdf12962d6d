// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "TemporaryFolder.h"

namespace bench {

/// Folders of folders of files of many sizes.
class FileTree {
  public:
    explicit FileTree(int files);

    const std::filesystem::path& path() const { return folder_.path(); }
    std::int64_t bytes() const { return bytes_; }

  private:
    morvane::TemporaryFolder folder_;
    std::int64_t bytes_ = 0;
};

/// An empty or sparse file.
void makeFile(const std::filesystem::path& path, std::int64_t size = 0);

/// Runs another program, whose output is dropped; throws unless it ends with 0.
void runProgram(const std::vector<std::string>& arguments);

}  // namespace bench
