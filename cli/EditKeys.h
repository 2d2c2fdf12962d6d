// SPDX-License-Identifier: MIT
#pragma once

namespace morvane {

/// A key is given by its character, or by one of these values if it has none.
enum EditKey : char32_t {
    keyUp = 0x110000,
    keyDown,
    keyLeft,
    keyRight,
    keyHome,
    keyBottom,
    keyPageUp,
    keyPageDown,
    /// No key will come any more.
    keyEnd,
    /// No key was pressed, but the size of the terminal has changed.
    keyResized,
    keyEnter = '\r',
    keyEscape = 0x1B,
    keyBackspace = 0x7F,
    keyInterrupt = 0x03,
    keyRedo = 0x12,
    keySuspend = 0x1A,
};

}  // namespace morvane
