// SPDX-License-Identifier: MIT
#pragma once

#include "ListChanging.h"

/// `morvane acl PATH... --set ENTRIES` and the like: makes the same change to many lists.
namespace morvane {

Outcome runChange(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                  const Style& style);

}  // namespace morvane
