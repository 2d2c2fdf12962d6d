#pragma once

#include <string>
#include <vector>

/// An image by its names in the user's icon theme, the most fitting first. A value.
///
///     QIcon::fromTheme(QString::fromStdString(image.names.front()));
///     gtk_image_new_from_icon_name(image.names.front().c_str());
namespace morvane {

struct NSImage {
    /// Never empty.
    std::vector<std::string> names;

    bool operator==(const NSImage&) const = default;
};

}  // namespace morvane
