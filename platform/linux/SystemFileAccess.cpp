// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/FileAccess.h>
#include <unistd.h>

#include <cerrno>

namespace morvane {
namespace {

class SystemFileAccess final : public FileAccess {
  public:
    int access(const char* path, int mode) override {
        return ::access(path, mode) == 0 ? 0 : errno;
    }
};

}  // namespace

std::shared_ptr<FileAccess> systemFileAccess() {
    return std::make_shared<SystemFileAccess>();
}

}  // namespace morvane
