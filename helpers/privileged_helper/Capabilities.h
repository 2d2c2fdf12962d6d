// SPDX-License-Identifier: MIT
#pragma once

/// Limits what the helper may do as root.
namespace morvane {

/// Gives up every capability except those that the requests need, for this process and all that it
/// may start. Returns 0 or an errno value.
int keepNeededCapabilities();

}  // namespace morvane
