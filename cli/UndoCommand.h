// SPDX-License-Identifier: MIT
#pragma once

#include "ListChanging.h"

/// `morvane acl --undo`: takes the last change of lists back.
namespace morvane {

Outcome runUndo(const ChangeOptions& options, const ChangeParts& parts, Journal& journal,
                const Style& style);

}  // namespace morvane
