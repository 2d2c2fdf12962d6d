#pragma once

#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// The requests of one client of the privileged helper, each behind its right.
///
/// Nothing that a client says counts as authorization: before a request touches anything, the right
/// that its declaration names is checked, once. What is refused is answered with EACCES and reaches
/// no handler. Every request is told to the log: what, with which item, and how it ended; a request
/// about several items in a line for each.
namespace morvane {

/// Whether the client holds the right now.
using RightCheck = std::function<RightState(const char* right)>;
/// Takes one line for the log.
using RequestLog = std::function<void(const std::string& line)>;

std::shared_ptr<MVFileRequest> guardedRequests(std::shared_ptr<MVFileRequest> requests,
                                               RightCheck check, RequestLog log);

/// `path` in printable ASCII without quotation marks, the rest in hexadecimal.
std::string escapedForLog(std::string_view path);

}  // namespace morvane
