// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>

/// The three standard descriptors of a program.
namespace morvane {

/// Opens /dev/null, for reading only, on those that the program was started without, so that no
/// file or socket gets such a number and what is printed. To be called first in main().
inline void openMissingStandardStreams() {
    constexpr int streams = 3;
    for (int stream = 0; stream < streams; ++stream) {
        // The lowest free number is the missing one.
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDONLY) != stream)
            return;
    }
}

}  // namespace morvane
