// SPDX-License-Identifier: MIT
#include "AclItem.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <cerrno>
#include <utility>

namespace morvane {

namespace {

/// This is enough for most lists, and not more, as the kernel clears the memory that it is asked to
/// fill.
constexpr std::size_t usualAttributeSize = 1024;

std::string pathTo(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

}  // namespace

Result<AclItem, int> AclItem::open(const std::string& path, const PathRule& rule) {
    // With this flag any kind of item can be opened, without waiting and without any right to it.
    auto item = openPath(path, O_PATH, rule);
    if (!item)
        return Failure{item.error()};
    return AclItem(*std::move(item));
}

// Calls that read attributes refuse such a descriptor, but accept its name in /proc.
AclItem::AclItem(FileDescriptor descriptor)
    : descriptor_(std::move(descriptor)), path_(pathTo(descriptor_.get())) {}

AclItem AclItem::borrowed(int descriptor) {
    AclItem item{FileDescriptor()};
    item.path_ = pathTo(descriptor);
    return item;
}

Result<std::vector<std::uint8_t>, int> readAttribute(const AclItem& item, const char* name) {
    std::vector<std::uint8_t> bytes(usualAttributeSize);
    auto size = getxattr(item.path().c_str(), name, bytes.data(), bytes.size());
    if (size < 0 && errno == ERANGE) {
        bytes.resize(maxAttributeSize);
        size = getxattr(item.path().c_str(), name, bytes.data(), bytes.size());
    }
    if (size < 0)
        return Failure{errno};
    bytes.resize(static_cast<std::size_t>(size));
    return bytes;
}

}  // namespace morvane
