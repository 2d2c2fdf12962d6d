#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PosixAcl.h"

/// One list for many items: made once into the form that the system takes.
namespace morvane {

/// The value of the extended attribute that is the list.
std::vector<std::uint8_t> attributeOfPosixList(const PosixList& list);

struct ItemValues {
    std::vector<std::uint8_t> access;
    /// The bits of the mode that an item with the list has.
    mode_t mode = 0;
    /// Whether these are the whole list, which has neither names nor a mask.
    bool isMode = false;
    /// Empty for none.
    std::vector<std::uint8_t> defaults;
};

ItemValues itemValuesOf(const PosixList& access,
                        const std::optional<PosixList>& defaults = std::nullopt);

/// An open item: `path` is empty, or leads to it where the descriptor itself gives no right to it
/// (O_PATH).
struct OpenItem {
    int descriptor = -1;
    std::string path;
};

/// Gives the item, whose status is `status`, the owner, the group and the lists. 0, or an errno
/// value and it has what it had. What is there already is not written. An item that would lose its
/// setgid bit by it, is left alone (EPERM).
int writeItemValues(const OpenItem& item, const struct stat& status, std::uint32_t owner,
                    std::uint32_t group, const ItemValues& values);

}  // namespace morvane
