#include <MorvaneOperation/platform/linux/GrantAges.h>
#include <MorvaneOperation/platform/linux/PolicyAuthority.h>
#include <MorvaneOperation/platform/linux/PolicyFile.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

namespace morvane {
namespace {

constexpr const char* installer = MORVANE_LIBEXEC_DIR "/morvane-install-helper";
constexpr const char* elevation = "/usr/bin/pkexec";

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
        for (const auto& right : rights) {
            // Installing has an elevation of its own, see SMJobBless.
            if (right.name == kSMRightBlessPrivilegedHelper)
                continue;
            const auto status =
                obtain(right.name, (flags & kAuthorizationFlagInteractionAllowed) != 0);
            if (status != errAuthorizationSuccess)
                return status;
        }
        return errAuthorizationSuccess;
    }

    OSStatus AuthorizationFree(const AuthorizationRef&, std::uint32_t flags) override {
        if ((flags & kAuthorizationFlagDestroyRights) == 0)
            return errAuthorizationSuccess;
        for (const auto& [id, since] : grants_.takeAll())
            revokeTemporaryAuthorization(id);
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
        if (isInstalled(label))
            return std::nullopt;
        if (access(installer, X_OK) != 0)
            return kSMErrorToolNotValid;
        if (access(elevation, X_OK) != 0)
            return kSMErrorServiceUnavailable;
        if (const auto code = runElevated())
            return code;
        return isInstalled(label) ? std::nullopt : std::optional(kSMErrorJobNotFound);
    }

  private:
    OSStatus obtain(const std::string& right, bool mayAsk) {
        const auto self = ownProcess();
        auto answer = checkAuthorization(self, right, mayAsk);
        if (answer && answer->isAuthorized && grants_.isExpired(answer->temporaryAuthorization) &&
            revokeTemporaryAuthorization(answer->temporaryAuthorization)) {
            grants_.forget(answer->temporaryAuthorization);
            answer = checkAuthorization(self, right, mayAsk);
            if (answer && answer->isAuthorized)
                grants_.isExpired(answer->temporaryAuthorization);  // its first sight
        }
        if (!answer)
            return errAuthorizationInternal;
        if (answer->isAuthorized)
            return errAuthorizationSuccess;
        if (answer->isDismissed)
            return errAuthorizationCanceled;
        return answer->isChallenge ? errAuthorizationInteractionNotAllowed : errAuthorizationDenied;
    }

    /// The service manager listens for the helper, as root.
    static bool isInstalled(const std::string& label) {
        struct stat status {};
        return lstat(("/run/" + label + ".sock").c_str(), &status) == 0 &&
               S_ISSOCK(status.st_mode) && status.st_uid == 0;
    }

    static std::optional<std::int64_t> runElevated() {
        char* const arguments[] = {const_cast<char*>(elevation), const_cast<char*>(installer),
                                   nullptr};
        pid_t child = 0;
        if (posix_spawn(&child, elevation, nullptr, nullptr, arguments, environ) != 0)
            return kSMErrorServiceUnavailable;
        int status = 0;
        while (waitpid(child, &status, 0) < 0) {
            if (errno != EINTR)
                return kSMErrorInternalFailure;
        }
        if (!WIFEXITED(status))
            return kSMErrorInternalFailure;
        constexpr int dismissed = 126;
        constexpr int notAuthorized = 127;
        switch (const int code = WEXITSTATUS(status)) {
            case 0:
                return std::nullopt;
            case dismissed:
                return kSMErrorLaunchDeniedByUser;
            case notAuthorized:
                return kSMErrorAuthorizationFailure;
            default:
                // The installer's own codes are those of this table.
                return code >= kSMErrorInternalFailure && code <= kSMErrorAlreadyRegistered
                           ? code
                           : static_cast<int>(kSMErrorInternalFailure);
        }
    }

    /// The grants that answers rested on.
    GrantAges grants_;
};

}  // namespace

std::shared_ptr<AuthorizationServices> systemAuthorizationServices() {
    return std::make_shared<SystemAuthorizationServices>();
}

}  // namespace morvane
