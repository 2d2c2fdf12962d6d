// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/linux/HelperInstallation.h>
#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <MorvaneOperation/platform/linux/PolicyBus.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace morvane {
namespace {

constexpr std::uint32_t allowUserInteraction = 1;
/// polkit may pause for fifteen seconds and then still answer correctly.
constexpr std::chrono::seconds answerTime{60};
/// A question to a person has no time limit.
constexpr auto withoutLimit = std::nullopt;

/// Writes a question about a "unix-process". The user is signed, as polkit declares it.
int writeQuestion(sd_bus_message* message, const ProcessIdentity& process,
                  const std::string& action, bool mayAsk) {
    return sd_bus_message_append(message, "(sa{sv})sa{ss}us", "unix-process", 3, "pid", "u",
                                 static_cast<std::uint32_t>(process.processIdentifier),
                                 "start-time", "t", process.startTime, "uid", "i",
                                 static_cast<std::int32_t>(process.userIdentifier), action.c_str(),
                                 0, mayAsk ? allowUserInteraction : 0, "");
}

/// Returns a negative number if the message is not the answer to a check.
int readAnswer(sd_bus_message* message, PolicyAnswer& answer) {
    constexpr const char* contents = "bba{ss}";
    if (!sd_bus_message_has_signature(message, "(bba{ss})"))
        return -EBADMSG;
    int isAuthorized = 0;
    int isChallenge = 0;
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, contents);
    if (result >= 0)
        result = sd_bus_message_read(message, "bb", &isAuthorized, &isChallenge);
    if (result >= 0)
        result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{ss}");
    bool isDismissed = false;
    const char* key = nullptr;
    const char* value = nullptr;
    while (result >= 0 && (result = sd_bus_message_read(message, "{ss}", &key, &value)) > 0) {
        if (std::strcmp(key, "polkit.dismissed") == 0) {
            isDismissed = *value != '\0';
        } else if (std::strcmp(key, "polkit.retains_authorization_after_challenge") == 0) {
            answer.wouldBeKept = true;
        } else if (std::strcmp(key, "polkit.temporary_authorization_id") == 0) {
            answer.grant.id = value;
        }
    }
    if (result < 0)
        return result;
    const char* const sender = sd_bus_message_get_sender(message);
    answer.grant.authority = sender ? sender : "";
    if (isAuthorized != 0 && isChallenge != 0)
        return -EBADMSG;  // The answer says yes and no at once.
    if (isAuthorized != 0) {
        answer.verdict = PolicyVerdict::yes;
    } else if (isDismissed) {
        answer.verdict = PolicyVerdict::dismissed;
    } else {
        answer.verdict = isChallenge != 0 ? PolicyVerdict::challenge : PolicyVerdict::no;
    }
    return 0;
}

/// Returns whether the list of all actions contains `action`; a negative number if the message is
/// no such list.
int findAction(sd_bus_message* message, const std::string& action) {
    if (!sd_bus_message_has_signature(message, "a(ssssssuuua{ss})"))
        return -EBADMSG;
    int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "(ssssssuuua{ss})");
    while (result >= 0 && (result = sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT,
                                                                   "ssssssuuua{ss}")) > 0) {
        const char* id = nullptr;
        result = sd_bus_message_read(message, "s", &id);
        if (result >= 0 && action == id)
            return 1;
        if (result >= 0)
            result = sd_bus_message_skip(message, "sssssuuua{ss}");
        if (result >= 0)
            result = sd_bus_message_exit_container(message);
    }
    return result;
}

/// Returns the path in the folder that the service manager keeps for a service while the system
/// runs; empty in a process that is no service.
std::string fileOfGrants() {
    const char* const folder = std::getenv("RUNTIME_DIRECTORY");
    return folder ? std::string(folder) + "/grants" : std::string();
}

/// The ages that this process knows as a service. They are never destroyed, as a worker may still
/// ask while static objects are.
GrantAges& agesOfGrants() {
    static auto* const ages = new GrantAges(fileOfGrants());
    return *ages;
}

}  // namespace

ProcessIdentity ownProcess() {
    const auto pid = getpid();
    return {pid, startTimeOfProcess(pid), getuid()};
}

PolicyAnswer checkAuthorization(const ProcessIdentity& process, const std::string& action,
                                bool mayAsk) {
    PolicyAnswer answer;
    if (process.processIdentifier <= 0 || process.startTime == 0 || process.userIdentifier < 0) {
        // If the process is not known for certain, polkit is not asked.
        answer.verdict = PolicyVerdict::refused;
        return answer;
    }
    const auto limit = mayAsk ? withoutLimit : std::optional<std::chrono::microseconds>(answerTime);
    const auto outcome = PolicyBus::shared().call(
        "CheckAuthorization",
        [&](sd_bus_message* question) { return writeQuestion(question, process, action, mayAsk); },
        limit,
        [&](sd_bus_message* message) {
            if (readAnswer(message, answer) < 0)
                answer = {};
        });
    if (outcome == PolicyBus::Outcome::refused)
        answer.verdict = PolicyVerdict::refused;
    return answer;
}

std::optional<bool> isActionDefined(const std::string& action) {
    int found = -1;
    PolicyBus::shared().call(
        "EnumerateActions",
        [](sd_bus_message* question) { return sd_bus_message_append(question, "s", ""); },
        answerTime, [&](sd_bus_message* answer) { found = findAction(answer, action); });
    return found < 0 ? std::nullopt : std::optional(found > 0);
}

bool revokeTemporaryAuthorization(const PolicyGrant& grant) {
    bool isRevoked = false;
    PolicyBus::shared().call(
        "RevokeTemporaryAuthorizationById",
        [&](sd_bus_message* question) {
            return sd_bus_message_append(question, "s", grant.id.c_str());
        },
        answerTime,
        [&](sd_bus_message* answer) { isRevoked = sd_bus_message_has_signature(answer, "") > 0; });
    return isRevoked;
}

RightAnswer lookUpRight(const ProcessIdentity& process, const std::string& right, GrantAges& ages) {
    auto answer = checkAuthorization(process, right, false);
    const bool isYes = answer.verdict == PolicyVerdict::yes;
    if (isYes && !ages.isExpired(answer.grant))
        return {RightState::held, std::move(answer)};
    if (answer.verdict == PolicyVerdict::unreachable)
        return {RightState::unknown, std::move(answer)};
    // The grant for another right counts only if a password was entered for it and one would
    // suffice for this right; a password for a right to files does not permit an installation.
    if ((isYes || (answer.verdict == PolicyVerdict::challenge && answer.wouldBeKept)) &&
        right != installHelperRight) {
        const auto implied = checkAuthorization(process, impliedAction, false);
        if (implied.verdict == PolicyVerdict::yes && !implied.grant.id.empty() &&
            !ages.isExpired(implied.grant))
            return {RightState::held, implied};
    }
    return {isYes ? RightState::expired : RightState::notHeld, std::move(answer)};
}

bool connectToPolicy() {
    agesOfGrants();
    return PolicyBus::shared().connect();
}

RightState rightOfProcess(const ProcessIdentity& process, const std::string& right) {
    return lookUpRight(process, right, agesOfGrants()).state;
}

}  // namespace morvane
