#include <MorvaneOperation/platform/host/FileAccess.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<FileAccess>& replacement() {
    static std::shared_ptr<FileAccess> access;
    return access;
}

}  // namespace

FileAccess::~FileAccess() = default;

FileAccess& FileAccess::current() {
    if (const auto& access = replacement())
        return *access;
    static const auto system = systemFileAccess();
    return *system;
}

void FileAccess::setCurrent(std::shared_ptr<FileAccess> access) {
    replacement() = std::move(access);
}

}  // namespace morvane
