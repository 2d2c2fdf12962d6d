// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>

#include <string>

#include "Outcome.h"

/// How a command reports a failure.
namespace morvane {

/// ExitService for a failure of the connection, otherwise ExitFailure.
ExitCode exitCodeOf(const NSError& error);

/// Whether nothing was done because the right to do it was not obtained.
bool isRefusedRight(const NSError& error);

/// What the request that failed was to do.
enum class Effect { reads, changes };

/// What a person can do about it, with the advice that came with the error first; empty if there is
/// nothing to say.
std::string advice(const NSError& error, Effect effect);

/// The lines below that of a failure: what has caused it, and the advice(), as far as there is
/// something to say of them.
std::string helpLines(const NSError& error, Effect effect);

/// The outcome of a command in which `what` has failed because of `error`, which is not null.
Outcome failed(const std::string& what, const NSErrorRef& error, Effect effect = Effect::reads);

/// What a command that only looks says when the user has stopped it.
std::string stoppedLooking();

/// The lines for standard error: what failed ("cannot list 'PATH'"), why, and what helps.
std::string failureMessage(const std::string& what, const NSError& error,
                           Effect effect = Effect::reads);

}  // namespace morvane
