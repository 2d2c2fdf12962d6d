// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>

#include <optional>
#include <string>

/// The system's policy service, polkit. Any thread; every call blocks until it is answered.
namespace morvane {

enum class PolicyVerdict {
    yes,
    no,
    /// The user would have to be asked, and was not.
    challenge,
    /// The user was asked and has closed the question.
    dismissed,
    /// polkit refuses the question: it knows no such action, or no such process.
    refused,
    /// Nobody answers, or nothing that has a meaning.
    unreachable,
};

struct PolicyAnswer {
    PolicyVerdict verdict = PolicyVerdict::unreachable;
    /// Of a challenge: whether a yes would be kept for a while.
    bool wouldBeKept = false;
    /// Of a yes: the grant that was kept, if it rests on one.
    PolicyGrant grant;
};

PolicyAnswer checkAuthorization(const ProcessIdentity& process, const std::string& action,
                                bool mayAsk);
/// Empty on failure.
std::optional<bool> isActionDefined(const std::string& action);
/// Whether polkit has forgotten the grant. It listens only to who sits in a session.
bool revokeTemporaryAuthorization(const PolicyGrant& grant);

/// An action that every right implies, and that nobody is ever asked for: polkit answers for it
/// with the grant of whichever right the user has given a password for.
///
/// The rights cannot imply each other. polkit lets what is implied pass even where an
/// administrator's rule says no, and a rule's yes to one of them would be one to all.
inline constexpr const char* impliedAction = "io.github.morvaneoperation.AnyRight";

struct RightAnswer {
    RightState state = RightState::unknown;
    /// polkit's answer about the right itself.
    PolicyAnswer answer;
};
/// Whether `process` holds `right`, without asking the user. A right for which the user would have
/// to give a password that is then kept is held too for as long as one that was given for another
/// right is good.
RightAnswer lookUpRight(const ProcessIdentity& process, const std::string& right, GrantAges& ages);

/// This very process.
ProcessIdentity ownProcess();

}  // namespace morvane
