// SPDX-License-Identifier: MIT
#include "AclPropagation.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace morvane {
namespace {

constexpr int fileFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

std::size_t levelOf(const TreeFolder& folder) {
    return std::min(folder.depth(), InheritedWriter::levels - 1);
}

}  // namespace

void AclPropagation::run(const InheritedWriter& writer, FileDescriptor folder,
                         const std::string& path) {
    writer_ = &writer;
    walk_.run(std::move(folder), path, *this);
}

void AclPropagation::visitFiles(const TreeFolder& in, FileNames names) {
    names.forEach([&](const char* name) {
        if (in.isCancelled())
            return false;
        if (const int code = writeFile(in, name))
            in.failed(name, code);
        return true;
    });
}

int AclPropagation::visitFolder(const TreeFolder& in, const OpenItem& folder) {
    struct stat status {};
    if (fstat(folder.descriptor, &status) != 0)
        return errno;
    const int code = write(in, folder, status);
    ++items_;
    return code;
}

int AclPropagation::writeFile(const TreeFolder& in, const char* name) {
    auto descriptor = openBelow(in.descriptor(), name, fileFlags);
    OpenItem item{descriptor.get(), {}};
    if (!descriptor && (errno == EACCES || errno == EPERM)) {
        // It can be written without being readable.
        descriptor = openBelow(in.descriptor(), name, O_PATH);
        item = {descriptor.get(), "/proc/self/fd/" + std::to_string(descriptor.get())};
    }
    struct stat status {};
    if (!descriptor || fstat(item.descriptor, &status) != 0)
        return hasGone(errno) ? 0 : errno;
    if (!S_ISREG(status.st_mode))
        return 0;
    ++items_;
    if (onBehalfOf_ && status.st_nlink > 1 && status.st_uid != *onBehalfOf_)
        return EMLINK;
    return write(in, item, status);
}

int AclPropagation::write(const TreeFolder& in, const OpenItem& item, const struct stat& status) {
    auto written = writer_->write(item, status, levelOf(in));
    if (written && written->empty()) {
        ++done_;
        return 0;
    }
    const std::lock_guard lock(mutex_);
    if (!written) {
        const auto& [code, why] = written.error();
        if (!why.empty() && reasons_.size() != maxReasons)
            reasons_.insert(why);
        return code;
    }
    for (auto& loss : *written) {
        if (lost_.size() != maxLost)
            lost_.insert(std::move(loss));
    }
    return EREMOTEIO;
}

EntryLossSet AclPropagation::lost() const {
    const std::lock_guard lock(mutex_);
    return lost_;
}

std::vector<Phrase> AclPropagation::reasons() const {
    const std::lock_guard lock(mutex_);
    return {reasons_.begin(), reasons_.end()};
}

}  // namespace morvane
