#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "AclPropagation.h"
#include "PosixAcl.h"

/// POSIX lists for many items: made once into the form that the system takes.
namespace morvane {

/// The value of the extended attribute that is the list.
std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list);

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
    std::array<Level, InheritedWriter::levels> levels;
};

/// What is there already is not written. An item that would lose its setgid bit is left alone
/// (EPERM), but for a file that gets another owner or group: the system takes setuid and setgid
/// from it.
std::unique_ptr<const InheritedWriter> inheritedListWriter(const InheritedLists& lists);

/// 0 or an errno value.
int writeOwner(const OpenItem& item, std::uint32_t owner, std::uint32_t group);

}  // namespace morvane
