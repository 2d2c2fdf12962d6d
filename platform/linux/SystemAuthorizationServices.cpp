#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/linux/HelperInstallation.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <MorvaneOperation/platform/linux/PolicyFile.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <cerrno>

namespace morvane {
namespace {

/// Nothing is kept under a reference here: polkit itself keeps what this process was granted.
class PolicyReference final : public AuthorizationReference {};

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
        const int code = writePolicyFile(name, policyFileText(name, rule, descriptionKey));
        if (code == 0)
            return errAuthorizationSuccess;
        return code == EACCES || code == EPERM || code == EROFS ? errAuthorizationDenied
                                                                : errAuthorizationInternal;
    }

    OSStatus AuthorizationCopyRights(const AuthorizationRef&,
                                     const std::vector<AuthorizationItem>& rights,
                                     std::uint32_t flags) override {
        const bool mayAsk = (flags & kAuthorizationFlagInteractionAllowed) != 0;
        for (const auto& right : rights) {
            const auto status = right.name == kSMRightBlessPrivilegedHelper
                                    ? obtainInstallation(mayAsk)
                                    : obtain(right.name, mayAsk);
            if (status != errAuthorizationSuccess)
                return status;
        }
        return errAuthorizationSuccess;
    }

    OSStatus AuthorizationFree(const AuthorizationRef&, std::uint32_t flags) override {
        if ((flags & kAuthorizationFlagDestroyRights) == 0)
            return errAuthorizationSuccess;
        for (const auto& [grant, since] : grants_.takeAll())
            revokeTemporaryAuthorization(grant);
        return errAuthorizationSuccess;
    }

    std::string SecCopyErrorMessageString(OSStatus status) override {
        switch (status) {
            case errAuthorizationSuccess:
                return "No error.";
            case errAuthorizationDenied:
                return "The authorization was denied.";
            case errAuthorizationCanceled:
                return "The authorization was cancelled by the user.";
            case errAuthorizationInteractionNotAllowed:
                return "There is no agent to ask the user with.";
            case errAuthorizationInternal:
                return "The system's policy service cannot be reached.";
            default:
                return "Status " + std::to_string(status) + ".";
        }
    }

    std::optional<std::int64_t> SMJobBless(const std::string&, const std::string& label,
                                           const AuthorizationRef&) override {
        return isHelperInstalled(label) ? std::nullopt : installHelper(label);
    }

  private:
    OSStatus obtain(const std::string& right, bool mayAsk) {
        const auto self = ownProcess();
        auto answer = checkAuthorization(self, right, mayAsk);
        if (answer && answer->isAuthorized && grants_.isExpired(answer->grant) &&
            revokeTemporaryAuthorization(answer->grant)) {
            grants_.forget(answer->grant);
            answer = checkAuthorization(self, right, mayAsk);
            if (answer && answer->isAuthorized)
                grants_.isExpired(answer->grant);  // its first sight
        }
        if (!answer)
            return errAuthorizationInternal;
        if (answer->isAuthorized)
            return errAuthorizationSuccess;
        if (answer->isDismissed)
            return errAuthorizationCanceled;
        return answer->isChallenge ? errAuthorizationInteractionNotAllowed : errAuthorizationDenied;
    }

    /// Nobody is asked where the helper is in its place, or cannot be put there.
    OSStatus obtainInstallation(bool mayAsk) {
        if (isHelperInstalled(helperLabel) || obstacleToHelper(helperLabel))
            return errAuthorizationSuccess;
        const auto defined = isActionDefined(installHelperRight);
        if (!defined)
            return errAuthorizationInternal;
        // Where the package's action is not known, the elevation asks with an action of its own.
        return *defined ? obtain(installHelperRight, mayAsk) : errAuthorizationSuccess;
    }

    /// The grants that answers rested on.
    GrantAges grants_;
};

}  // namespace

std::shared_ptr<AuthorizationServices> systemAuthorizationServices() {
    return std::make_shared<SystemAuthorizationServices>();
}

}  // namespace morvane
