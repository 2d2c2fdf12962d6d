// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace morvane {

/// A uniform resource locator, in practice the location of a file. A value: copied and compared by
/// content.
///
///     auto url = NSURL::fileURLWithPath("/home/me/My Files");
///     assert(url.path() == "/home/me/My Files");
///     assert(url.absoluteString() == "file:///home/me/My%20Files");
///
/// Paths are bytes as the kernel has them: any byte but NUL, not necessarily UTF-8. Only file URLs
/// have a path.
class MORVANE_EXPORT NSURL {
  public:
    /// The URL of a file. A relative path is taken from the current directory; nothing else is
    /// resolved or normalised. Throws NSException "NSInvalidArgumentException" if `path` is empty
    /// or holds a NUL byte.
    static NSURL fileURLWithPath(std::string_view path);

    /// Parses an absolute URL ("scheme:..."). Empty if it has no scheme, if a percent escape is
    /// malformed or stands for NUL, or if a file URL names a host other than "localhost" or a path
    /// that is not absolute.
    static std::optional<NSURL> URLWithString(std::string_view text);

    bool isFileURL() const { return isFile_; }
    /// The path of a file URL, otherwise empty.
    const std::string& path() const;
    /// The name after the last slash of the path ("/" for the root).
    std::string lastPathComponent() const;
    /// The URL of an item directly inside this folder.
    NSURL URLByAppendingPathComponent(std::string_view name) const;
    /// The URL as text; bytes that a path may not hold there are percent-escaped.
    std::string absoluteString() const;

    auto operator<=>(const NSURL&) const = default;

  private:
    NSURL(bool isFile, std::string value) : isFile_(isFile), value_(std::move(value)) {}

    bool isFile_;
    /// The path of a file URL; the whole text of any other.
    std::string value_;
};

}  // namespace morvane
