#include <MorvaneOperation/platform/security/AuthorizationServices.h>

namespace morvane {
namespace {

/// This build has no road to the system's policy database yet: every request fails as an internal
/// failure, so no right is ever granted.
class SystemAuthorizationServices final : public AuthorizationServices {
  public:
    OSStatus AuthorizationCreate(std::uint32_t, AuthorizationRef*) override {
        return errAuthorizationInternal;
    }
    OSStatus AuthorizationRightGet(const std::string&) override { return errAuthorizationInternal; }
    OSStatus AuthorizationRightSet(const AuthorizationRef&, const std::string&,
                                   const AuthorizationRule&, const std::string&) override {
        return errAuthorizationInternal;
    }
    OSStatus AuthorizationCopyRights(const AuthorizationRef&, const std::vector<AuthorizationItem>&,
                                     std::uint32_t) override {
        return errAuthorizationInternal;
    }
    OSStatus AuthorizationFree(const AuthorizationRef&, std::uint32_t) override {
        return errAuthorizationSuccess;
    }
    std::string SecCopyErrorMessageString(OSStatus status) override {
        switch (status) {
            case errAuthorizationDenied:
                return "The authorization was denied.";
            case errAuthorizationCanceled:
                return "The authorization was cancelled by the user.";
            case errAuthorizationInteractionNotAllowed:
                return "There is no agent to ask the user with.";
            default:
                return "An internal authorization failure has occurred.";
        }
    }
    std::optional<std::int64_t> SMJobBless(const std::string&, const std::string&,
                                           const AuthorizationRef&) override {
        return kSMErrorInternalFailure;
    }
};

}  // namespace

std::shared_ptr<AuthorizationServices> systemAuthorizationServices() {
    return std::make_shared<SystemAuthorizationServices>();
}

}  // namespace morvane
