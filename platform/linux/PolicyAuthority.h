// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>

#include <optional>
#include <string>

/// Questions to the system's policy service, polkit. Every function may be called on any thread and
/// blocks until polkit answers.
namespace morvane {

enum class PolicyVerdict {
    yes,
    no,
    /// The user would have to be asked, and was not.
    challenge,
    /// The user was asked and closed the dialog.
    dismissed,
    /// polkit refuses the question because it knows no such action or no such process.
    refused,
    /// There is no answer, or one that makes no sense.
    unreachable,
};

struct PolicyAnswer {
    PolicyVerdict verdict = PolicyVerdict::unreachable;
    /// For a challenge, whether a grant would be kept for a while.
    bool wouldBeKept = false;
    /// For a yes, the kept grant on which it is based, if any.
    PolicyGrant grant;
};

PolicyAnswer checkAuthorization(const ProcessIdentity& process, const std::string& action,
                                bool mayAsk);
/// Returns nothing if polkit cannot be asked.
std::optional<bool> isActionDefined(const std::string& action);
/// Returns whether polkit has forgotten the grant. It does so only for a caller in a login session.
bool revokeTemporaryAuthorization(const PolicyGrant& grant);

/// An action that every right implies and that users are never asked for: polkit answers for it
/// with the grant of whichever right the user has entered a password for.
///
/// The rights cannot imply each other. polkit allows what is implied even where an administrator's
/// rule says no, and a rule that allows one of them would allow all.
inline constexpr const char* impliedAction = "io.github.morvaneoperation.AnyRight";

struct RightAnswer {
    RightState state = RightState::unknown;
    /// polkit's answer about the right itself.
    PolicyAnswer answer;
};
/// Looks up whether `process` holds `right`, without asking the user. A right that needs a password
/// whose grant is kept is also held while the grant for another right is valid.
RightAnswer lookUpRight(const ProcessIdentity& process, const std::string& right, GrantAges& ages);

/// The identity of this process.
ProcessIdentity ownProcess();

}  // namespace morvane
