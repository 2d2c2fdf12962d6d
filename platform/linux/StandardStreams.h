// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>

/// Makes sure that a program has its three standard descriptors.
namespace morvane {

/// Opens /dev/null, for reading only, for each one that the program was started without, so that no
/// file or socket gets its number and with it what is printed. It has to be the first call in
/// main().
inline void openMissingStandardStreams() {
    constexpr int streams = 3;
    for (int stream = 0; stream < streams; ++stream) {
        // The lowest free number is the missing one.
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDONLY) != stream)
            return;
    }
}

}  // namespace morvane
