#pragma once

#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>

#include <optional>
#include <string>

/// The system's policy service, polkit, over the system bus. Any thread; every call blocks until it
/// is answered.
namespace morvane {

struct PolicyAnswer {
    bool isAuthorized = false;
    /// The user would have to be asked, and could not be.
    bool isChallenge = false;
    /// The user was asked and has closed the question.
    bool isDismissed = false;
    /// The grant that was kept, if the answer rests on one.
    PolicyGrant grant;
};

/// Empty on failure.
std::optional<PolicyAnswer> checkAuthorization(const ProcessIdentity& process,
                                               const std::string& action, bool mayAsk);
/// Empty on failure.
std::optional<bool> isActionDefined(const std::string& action);
/// Whether polkit has forgotten the grant. It listens only to who sits in a session.
bool revokeTemporaryAuthorization(const PolicyGrant& grant);

/// This very process.
ProcessIdentity ownProcess();
/// When a process has started; 0 if there is none.
std::uint64_t startTimeOfProcess(std::int64_t pid);

}  // namespace morvane
