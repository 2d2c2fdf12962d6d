#pragma once

#include <functional>
#include <string_view>

/// The library's log: standard error, unless a test listens. Only the connector writes to it.
namespace morvane {

void logLine(std::string_view line);

/// For tests; empty puts standard error back.
void setLogSink(std::function<void(std::string_view)> sink);

}  // namespace morvane
