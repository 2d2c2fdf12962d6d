// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>

#include "EditKeys.h"

namespace morvane {

/// The arrow key that a letter stands for; any other key is returned as it is.
inline char32_t asArrow(char32_t key) {
    switch (key) {
        case 'h':
            return keyLeft;
        case 'j':
            return keyDown;
        case 'k':
            return keyUp;
        case 'l':
            return keyRight;
        default:
            return key;
    }
}

/// The line that a key leads to, among `count` lines of which `page` are seen at once.
inline std::size_t moved(std::size_t from, char32_t key, std::size_t count, std::size_t page) {
    const auto last = count == 0 ? 0 : count - 1;
    switch (key) {
        case keyUp:
            return from == 0 ? 0 : from - 1;
        case keyDown:
            return std::min(from + 1, last);
        case keyPageUp:
            return from - std::min(from, page);
        case keyPageDown:
            return std::min(from + page, last);
        case keyHome:
            return 0;
        case keyBottom:
            return last;
        default:
            return from;
    }
}

}  // namespace morvane
