// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSImage.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <memory>
#include <optional>
#include <string>

/// What the system knows about the file at a URL, for display.
///
///     const auto values = NSURLResourceValues::valuesForURL(url);
///     if (values.isDirectory.value_or(false)) ...
///
/// A value that cannot be read is empty; why is not reported. A symbolic link is described itself,
/// not what it points to. Reading asks the file system each time and may block. Any thread.
namespace morvane {

struct MORVANE_EXPORT NSURLResourceValues {
    /// NSURLLocalizedNameKey: the name as people see it, always UTF-8.
    std::optional<std::string> localizedName;
    /// NSURLEffectiveIconKey.
    std::optional<NSImage> effectiveIcon;
    /// NSURLIsDirectoryKey.
    std::optional<bool> isDirectory;

    static NSURLResourceValues valuesForURL(const NSURL& url);

    bool operator==(const NSURLResourceValues&) const = default;
};

/// Where the values are read. Supplied by the system, or by a test.
class MORVANE_EXPORT FileInformation {
  public:
    virtual ~FileInformation();
    /// Any thread. Everything is empty for a URL that is not of a file.
    virtual NSURLResourceValues read(const NSURL& url) = 0;

    /// For tests, before any other thread reads: null puts the system's back.
    static void setCurrent(std::shared_ptr<FileInformation> information);
};

/// GIO. Defined by the Linux platform.
std::shared_ptr<FileInformation> systemFileInformation();

}  // namespace morvane
