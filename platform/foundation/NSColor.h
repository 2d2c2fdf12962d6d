// SPDX-License-Identifier: MIT
#pragma once

namespace morvane {

/// A colour as components from 0 to 1, not premultiplied, in sRGB. A value. The components are what
/// GTK's `GdkRGBA` and Qt's `QColor::fromRgbF()` are made of.
struct NSColor {
    float red = 0;
    float green = 0;
    float blue = 0;
    float alpha = 1;

    bool operator==(const NSColor&) const = default;
};

}  // namespace morvane
