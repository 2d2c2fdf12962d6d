// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>

#include <functional>
#include <memory>
#include <string_view>

#include "RequestJournal.h"

/// The requests of one client of the privileged helper, each behind its right.
///
/// Nothing that a client says counts as authorization: before any argument of a request is looked
/// at, the right that its declaration names is checked, once. A refused request is answered with
/// EACCES and reaches no handler. Every request is logged: a refused one with its message, any
/// other with each item, when it begins and how it has ended.
namespace morvane {

/// Whether the client holds the right now.
using RightCheck = std::function<RightState(const char* right)>;

/// Admits the messages of MVFileRequest whose right is held, and no others.
NSXPCConnection::Admission admissionByRight(RightCheck check,
                                            std::shared_ptr<RequestJournal> journal,
                                            const RequestClient& client);

/// Wraps `requests`, so that the journal logs when each one begins and, before its reply is sent,
/// how it has ended.
std::shared_ptr<MVFileRequest> loggedRequests(std::shared_ptr<MVFileRequest> requests,
                                              std::shared_ptr<RequestJournal> journal,
                                              const RequestClient& client);

}  // namespace morvane
