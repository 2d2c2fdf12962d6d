// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace morvane {

/// An image by its names in the user's icon theme, the most fitting first. A value. The names are
/// what GTK's `gtk_image_new_from_icon_name()` and Qt's `QIcon::fromTheme()` are given.
struct NSImage {
    /// Never empty.
    std::vector<std::string> names;

    bool operator==(const NSImage&) const = default;
};

}  // namespace morvane
