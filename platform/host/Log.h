// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <functional>
#include <string_view>

/// \file
/// The library's log: standard error, unless the host takes the lines. Only the connector writes to
/// it, when one of its connections has ended. Any thread.

namespace morvane {

void logLine(std::string_view line);

/// `sink` gets each line, on the thread that writes it; empty puts standard error back.
MORVANE_EXPORT void setLogSink(std::function<void(std::string_view)> sink);

}  // namespace morvane
