// SPDX-License-Identifier: MIT
#pragma once

#include "ListChanging.h"

/// `morvane acl --undo`: the last change of lists is taken back.
namespace morvane {

Outcome runUndo(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                const Style& style);

}  // namespace morvane
