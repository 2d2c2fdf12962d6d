// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/PosixAcl.h>

namespace morvane {

/// Adds a mask to `wanted`, whose rights are those that shall have an effect, and the rights that
/// the mask of `old` holds back. `old` is the list that the item has now, or null if it has none.
PosixList withMask(PosixList wanted, const PosixList* old);

}  // namespace morvane
