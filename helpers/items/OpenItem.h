// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace morvane {

/// An open item that somebody else holds. `path` is empty unless the descriptor itself gives no
/// right to the item (O_PATH), and then leads to it.
struct OpenItem {
    int descriptor = -1;
    std::string path;
};

}  // namespace morvane
