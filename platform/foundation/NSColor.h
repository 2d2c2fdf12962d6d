#pragma once

/// A colour as components from 0 to 1, not premultiplied, in sRGB. A value.
///
///     GdkRGBA rgba{color.red, color.green, color.blue, color.alpha};
///     QColor::fromRgbF(color.red, color.green, color.blue, color.alpha);
namespace morvane {

struct NSColor {
    float red = 0;
    float green = 0;
    float blue = 0;
    float alpha = 1;

    bool operator==(const NSColor&) const = default;
};

}  // namespace morvane
