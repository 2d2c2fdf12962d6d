// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>
#include <gio/gio.h>

#include <utility>

namespace morvane {
namespace {

template <class T>
using Ref = std::unique_ptr<T, decltype(&g_object_unref)>;

std::optional<NSImage> imageOf(GIcon* icon) {
    if (!G_IS_THEMED_ICON(icon))
        return std::nullopt;
    NSImage image;
    for (auto name = g_themed_icon_get_names(G_THEMED_ICON(icon)); name && *name; ++name)
        image.names.emplace_back(*name);
    return image.names.empty() ? std::nullopt : std::optional(std::move(image));
}

class GioFileInformation final : public FileInformation {
  public:
    NSURLResourceValues read(const NSURL& url) override {
        NSURLResourceValues values;
        if (!url.isFileURL())
            return values;
        const Ref<GFile> file(g_file_new_for_path(url.path().c_str()), &g_object_unref);
        const Ref<GFileInfo> info(
            g_file_query_info(file.get(),
                              G_FILE_ATTRIBUTE_STANDARD_DISPLAY_NAME
                              "," G_FILE_ATTRIBUTE_STANDARD_ICON "," G_FILE_ATTRIBUTE_STANDARD_TYPE,
                              G_FILE_QUERY_INFO_NOFOLLOW_SYMLINKS, nullptr, nullptr),
            &g_object_unref);
        if (!info)
            return values;
        if (const char* const name = g_file_info_get_display_name(info.get()))
            values.localizedName = name;
        values.effectiveIcon = imageOf(g_file_info_get_icon(info.get()));
        // For an item that may not be read, GIO answers as well, with the type "unknown".
        const auto type = g_file_info_get_file_type(info.get());
        if (type != G_FILE_TYPE_UNKNOWN)
            values.isDirectory = type == G_FILE_TYPE_DIRECTORY;
        return values;
    }
};

}  // namespace

std::shared_ptr<FileInformation> systemFileInformation() {
    return std::make_shared<GioFileInformation>();
}

}  // namespace morvane
