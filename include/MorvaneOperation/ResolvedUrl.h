// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

/// \file
/// Paths without symbolic links, which the privileged helper wants. MVFileClient resolves them
/// itself; a host that sends its requests through a connector does so before.

namespace morvane {

/// The same item by a path without symbolic links, as the helper takes no others. What is below a
/// folder that this user may not enter stays as it is.
MORVANE_EXPORT NSURL withoutLinks(const NSURL& url);

/// Likewise where a link at the end of the path is the item itself.
MORVANE_EXPORT NSURL withoutLinksOnTheWay(const NSURL& url);

/// The URL of an item inside `folder` as one inside `meant`, which is another way to that folder.
/// Other URLs stay as they are.
MORVANE_EXPORT NSURL movedTo(const NSURL& url, const NSURL& folder, const NSURL& meant);

/// The folder that the item is in.
MORVANE_EXPORT NSURL folderOf(const NSURL& url);

}  // namespace morvane
