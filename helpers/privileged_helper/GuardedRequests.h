#pragma once

#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "RequestsAtWork.h"

/// The requests of one client of the privileged helper, each behind its right.
///
/// Nothing that a client says counts as authorization: before any argument of a request is looked
/// at, the right that its declaration names is checked, once. What is refused is answered with
/// EACCES and reaches no handler. Every request is told to the log: one that is refused with its
/// message, any other with each item in a line of its own and how it ended.
namespace morvane {

/// Whether the client holds the right now.
using RightCheck = std::function<RightState(const char* right)>;
/// Takes one line for the log.
using RequestLog = std::function<void(const std::string& line)>;

/// Admits the messages of MVFileRequest whose right is held, and no others.
NSXPCConnection::Admission admissionByRight(RightCheck check, RequestLog log);

/// `requests`, which tell the log how each has ended before its reply is sent, and are counted in
/// `work` until they have replied.
std::shared_ptr<MVFileRequest> loggedRequests(
    std::shared_ptr<MVFileRequest> requests, RequestLog log,
    std::shared_ptr<RequestsAtWork> work = std::make_shared<RequestsAtWork>());

/// `path` in printable ASCII without quotation marks, the rest in hexadecimal.
std::string escapedForLog(std::string_view path);

}  // namespace morvane
