#pragma once

#include <MorvaneOperation/PosixAcl.h>

namespace morvane {

/// `wanted`, whose entries are what shall count, with a mask, and with what that of `old`, the list
/// that is there now, holds back. `old` is null if there is none.
PosixList withMask(PosixList wanted, const PosixList* old);

}  // namespace morvane
