// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/Phrase.h>
#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/linux/HelperInstallation.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <MorvaneOperation/platform/linux/PolicyFile.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace morvane {
namespace {

/// polkit keeps what this process was granted. Which of the grants belong to a reference is
/// recorded by the services below.
class PolicyReference final : public AuthorizationReference {};

/// How long polkit may take to notice a new right, and how often it is asked meanwhile.
constexpr std::chrono::seconds noticeTime{30};
constexpr std::chrono::milliseconds noticePause{10};

/// A right is an action of polkit with the right's name, a prompt that action's message.
class SystemAuthorizationServices final : public AuthorizationServices {
  public:
    OSStatus AuthorizationCreate(std::uint32_t, AuthorizationRef* reference) override {
        *reference = std::make_shared<PolicyReference>();
        return errAuthorizationSuccess;
    }

    OSStatus AuthorizationRightGet(const std::string& name) override {
        const auto defined = isActionDefined(name);
        if (!defined)
            return errAuthorizationInternal;
        return *defined ? errAuthorizationSuccess : errAuthorizationDenied;
    }

    OSStatus AuthorizationRightSet(const AuthorizationRef&, const std::string& name,
                                   const AuthorizationRule& rule,
                                   const std::string& descriptionKey) override {
        int code = writePolicyFile(name, policyFileText(name, rule, descriptionKey));
        if (code == 0 && isActionDefined(impliedAction) == false)
            code = writePolicyFile(impliedAction, impliedPolicyFileText());
        if (code == 0) {
            const std::lock_guard lock(mutex_);
            written_.insert(name);
            return errAuthorizationSuccess;
        }
        return code == EACCES || code == EPERM || code == EROFS ? errAuthorizationDenied
                                                                : errAuthorizationInternal;
    }

    OSStatus AuthorizationCopyRights(const AuthorizationRef& reference,
                                     const std::vector<AuthorizationItem>& rights,
                                     std::uint32_t flags) override {
        if (!reference)
            return errAuthorizationInvalidRef;
        const bool mayAsk = (flags & kAuthorizationFlagInteractionAllowed) != 0;
        for (const auto& right : rights) {
            waitUntilNoticed(right.name);
            const auto status = right.name == kSMRightBlessPrivilegedHelper
                                    ? obtainInstallation(reference, mayAsk)
                                    : obtain(reference, right.name, mayAsk);
            if (status != errAuthorizationSuccess)
                return status;
        }
        return errAuthorizationSuccess;
    }

    OSStatus AuthorizationFree(const AuthorizationRef& reference, std::uint32_t flags) override {
        if (!reference || (flags & kAuthorizationFlagDestroyRights) == 0)
            return errAuthorizationSuccess;
        for (const auto& grant : takeGrantsOf(reference)) {
            revokeTemporaryAuthorization(grant);
            ages_.forget(grant);
        }
        return errAuthorizationSuccess;
    }

    std::string SecCopyErrorMessageString(OSStatus status) override {
        return textOf(status).localized();
    }

    std::optional<std::int64_t> SMJobBless(const std::string&, const std::string& label,
                                           const AuthorizationRef&) override {
        return isHelperInstalled(label) ? std::nullopt : installHelper(label);
    }

  private:
    /// polkit notices a new policy file some time after it was written.
    void waitUntilNoticed(const std::string& right) {
        {
            const std::lock_guard lock(mutex_);
            if (written_.erase(right) == 0)
                return;
        }
        const auto end = std::chrono::steady_clock::now() + noticeTime;
        while (isActionDefined(right) == false && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(noticePause);
    }

    static Phrase textOf(OSStatus status) {
        switch (status) {
            case errAuthorizationSuccess:
                return phrase("No error.");
            case errAuthorizationInvalidRef:
                return phrase("The authorization reference is empty.");
            case errAuthorizationInvalidSet:
                return phrase(
                    "The system's policy service refuses to answer for this right; it may not "
                    "be defined.");
            case errAuthorizationDenied:
                return phrase("The authorization was denied.");
            case errAuthorizationCanceled:
                return phrase("The authorization was cancelled by the user.");
            case errAuthorizationInteractionNotAllowed:
                return phrase("There is no agent to ask the user with.");
            case errAuthorizationInternal:
                return phrase("The system's policy service cannot be reached.");
            case errAuthorizationExpired:
                return phrase(
                    "The authorization has expired. Outside of a login session it can be given "
                    "anew once five minutes have passed since it was given; ask again then, or "
                    "in a program started anew.");
            default:
                return phrase("Status %1.", status);
        }
    }

    OSStatus obtain(const AuthorizationRef& reference, const std::string& right, bool mayAsk) {
        const auto self = ownProcess();
        auto held = lookUpRight(self, right, ages_);
        if (held.state == RightState::expired) {
            if (!revokeTemporaryAuthorization(held.answer.grant))
                return errAuthorizationExpired;
            forget(held.answer.grant);
            held = lookUpRight(self, right, ages_);
        }
        auto& answer = held.answer;
        if (held.state != RightState::held && mayAsk && answer.verdict == PolicyVerdict::challenge)
            answer = checkAuthorization(self, right, true);
        switch (answer.verdict) {
            case PolicyVerdict::yes:
                keep(reference, answer.grant);
                return errAuthorizationSuccess;
            case PolicyVerdict::no:
                return errAuthorizationDenied;
            case PolicyVerdict::challenge:
                return errAuthorizationInteractionNotAllowed;
            case PolicyVerdict::dismissed:
                return errAuthorizationCanceled;
            case PolicyVerdict::refused:
                return errAuthorizationInvalidSet;
            case PolicyVerdict::unreachable:
                break;
        }
        return errAuthorizationInternal;
    }

    /// The user is not asked if the helper is installed already or cannot be installed.
    OSStatus obtainInstallation(const AuthorizationRef& reference, bool mayAsk) {
        if (isHelperInstalled(helperLabel) || obstacleToHelper(helperLabel))
            return errAuthorizationSuccess;
        const auto defined = isActionDefined(installHelperRight);
        if (!defined)
            return errAuthorizationInternal;
        // If polkit does not know the package's action, the program that runs the installer as root
        // asks with its own.
        return *defined ? obtain(reference, installHelperRight, mayAsk) : errAuthorizationSuccess;
    }

    /// A grant belongs to the reference that has used it first.
    void keep(const AuthorizationRef& reference, const PolicyGrant& grant) {
        ages_.isExpired(grant);  // This records when the grant was first seen.
        const std::lock_guard lock(mutex_);
        std::erase_if(owners_, [](const auto& owned) { return owned.second.expired(); });
        if (!grant.id.empty())
            owners_.try_emplace(grant, reference);
    }

    void forget(const PolicyGrant& grant) {
        ages_.forget(grant);
        const std::lock_guard lock(mutex_);
        owners_.erase(grant);
    }

    std::vector<PolicyGrant> takeGrantsOf(const AuthorizationRef& reference) {
        const std::lock_guard lock(mutex_);
        std::vector<PolicyGrant> grants;
        std::erase_if(owners_, [&](const auto& owned) {
            const bool isTaken = owned.second.lock() == reference;
            if (isTaken)
                grants.push_back(owned.first);
            return isTaken;
        });
        return grants;
    }

    /// When each grant on which an answer was based was first seen.
    GrantAges ages_;
    std::mutex mutex_;
    /// The rights that were defined and have not been asked for since.
    std::set<std::string> written_;
    std::map<PolicyGrant, std::weak_ptr<AuthorizationReference>> owners_;
};

}  // namespace

std::shared_ptr<AuthorizationServices> systemAuthorizationServices() {
    return std::make_shared<SystemAuthorizationServices>();
}

}  // namespace morvane
