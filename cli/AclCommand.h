// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSURL.h>
#include <MorvaneOperation/platform/foundation/Result.h>

#include <functional>
#include <string>
#include <vector>

#include "EntryText.h"
#include "Outcome.h"

/// `morvane acl PATH`: shows the access-control list of one item.
namespace morvane {

struct AclOptions {
    std::string path;
    /// More items, whose lists are shown after the first.
    std::vector<std::string> others = {};
    bool tree = false;
    bool json = false;
};

/// Asks for the list of an item and waits for the answer.
using AclSource = std::function<Result<EntryList>(const NSURL& url)>;

Outcome runAcl(const AclOptions& options, const AclSource& source, const Style& style);

}  // namespace morvane
