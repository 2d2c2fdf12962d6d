#include <MorvaneOperation/platform/host/FileAccess.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<FileAccess>& replacement() {
    // Never destroyed: other threads may use it while the process ends.
    static auto& access = *new std::shared_ptr<FileAccess>;
    return access;
}

}  // namespace

FileAccess::~FileAccess() = default;

FileAccess& FileAccess::current() {
    if (const auto& access = replacement())
        return *access;
    static const auto& system = *new std::shared_ptr<FileAccess>(systemFileAccess());
    return *system;
}

void FileAccess::setCurrent(std::shared_ptr<FileAccess> access) {
    replacement() = std::move(access);
}

}  // namespace morvane
