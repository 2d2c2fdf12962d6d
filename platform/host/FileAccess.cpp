// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/SystemPart.h>
#include <MorvaneOperation/platform/host/FileAccess.h>

#include <utility>

namespace morvane {
namespace {

SystemPart<FileAccess>& fileAccess() {
    static auto& part = *new SystemPart<FileAccess>(systemFileAccess);
    return part;
}

}  // namespace

FileAccess::~FileAccess() = default;

FileAccess& FileAccess::current() {
    return fileAccess().current();
}

void FileAccess::setCurrent(std::shared_ptr<FileAccess> access) {
    fileAccess().replace(std::move(access));
}

}  // namespace morvane
