// SPDX-License-Identifier: MIT
#pragma once

/// What the helper may do as root, from its start on.
namespace morvane {

/// Gives up every capability but those that the requests need, for this process and for whatever it
/// might start. 0, or an errno value.
int keepNeededCapabilities();

}  // namespace morvane
