// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>

namespace morvane {

/// The same item by a path without symbolic links, as the helper takes no others. What is below a
/// folder that this user may not enter stays as it is.
NSURL withoutLinks(const NSURL& url);

/// Likewise where a link at the end of the path is the item itself.
NSURL withoutLinksOnTheWay(const NSURL& url);

/// The URL of an item inside `folder` as one inside `meant`, which is another way to that folder.
/// Other URLs stay as they are.
NSURL movedTo(const NSURL& url, const NSURL& folder, const NSURL& meant);

/// The folder that the item is in.
NSURL folderOf(const NSURL& url);

}  // namespace morvane
