// SPDX-License-Identifier: MIT
#pragma once

namespace morvane {

/// A key, as its character; those without one by the values here.
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
    /// None was pressed; the terminal has another size.
    keyResized,
    keyEnter = '\r',
    keyEscape = 0x1B,
    keyBackspace = 0x7F,
    keyInterrupt = 0x03,
    keyRedo = 0x12,
    keySuspend = 0x1A,
};

}  // namespace morvane
