// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace morvane {

/// An open item, held by somebody else: `path` is empty, or leads to the item where the descriptor
/// itself gives no right to it (O_PATH).
struct OpenItem {
    int descriptor = -1;
    std::string path;
};

}  // namespace morvane
