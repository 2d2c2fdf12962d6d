// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVServiceNames.h>
#include <MorvaneOperation/platform/foundation/Phrase.h>

#include <array>
#include <string>
#include <utility>

#include "AuthorizationState.h"

namespace morvane {
namespace {

struct Right {
    const char* name;
    const char* prompt;
};

/// The rights in the order in which they are defined.
constexpr std::array rights = {
    Right{MVRightGetFileAcl, "Morvane wants to retrieve file Access Control List."},
    Right{MVRightGetFileAccess, "Morvane wants to retrieve effective permissions."},
    Right{MVRightSetFileAcl, "Morvane wants to save file Access Control List."},
    Right{
        MVRightPropagateFileAcl,
        "Morvane wants to propagate file Access Control List, POSIX permissions, owner and group."},
    Right{MVRightRenameFiles, "Morvane wants to rename files."},
    Right{MVRightGetFileSize, "Morvane wants to calculate file sizes."},
};

const AuthorizationRule& rule() {
    static const AuthorizationRule shared{"user", "admin", 45, false, true};
    return shared;
}

const char* installErrorText(std::int64_t code) {
    switch (code) {
        case kSMErrorInternalFailure:
            return translatable("An internal failure has occurred.");
        case kSMErrorInvalidSignature:
            return translatable(
                "The application's code signature does not meet the requirements to perform the "
                "operation.");
        case kSMErrorAuthorizationFailure:
            return translatable("The requested authorization failed.");
        case kSMErrorToolNotValid:
            return translatable(
                "The specified path does not exist or the helper tool at the specified path is "
                "not valid.");
        case kSMErrorJobNotFound:
            return translatable("The system cannot find the specified job.");
        case kSMErrorServiceUnavailable:
            return translatable(
                "The service necessary to perform this operation is unavailable or is no longer "
                "accepting requests.");
        case kSMErrorJobPlistNotFound:
            return translatable("The application's property list is not found.");
        case kSMErrorJobMustBeEnabled:
            return translatable("The specified job is not enabled.");
        case kSMErrorInvalidPlist:
            return translatable("The application's property list is invalid.");
        case kSMErrorLaunchDeniedByUser:
            return translatable("The user denied the application's launch request.");
        case kSMErrorAlreadyRegistered:
            return translatable("The application is already registered.");
        default:
            return "";
    }
}

NSErrorRef describedError(const char* domain, std::int64_t code, std::string description) {
    return NSError::errorWithDomain(domain, code,
                                    {{NSLocalizedDescriptionKey, std::move(description)}});
}

std::unique_ptr<AuthorizationState>& state() {
    static auto* const s =
        new std::unique_ptr<AuthorizationState>(std::make_unique<AuthorizationState>());
    return *s;
}

/// Defines the rights that are missing; one that exists is left as it is, whatever its rule.
bool defineMissingRights(const AuthorizationRef& reference) {
    auto& services = AuthorizationServices::current();
    for (const auto& right : rights) {
        if (services.AuthorizationRightGet(right.name) != errAuthorizationDenied)
            continue;
        if (services.AuthorizationRightSet(reference, right.name, rule(), right.prompt) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

AuthorizationState& AuthorizationState::current() {
    return *state();
}

void AuthorizationState::startAnew() {
    state() = std::make_unique<AuthorizationState>();
}

const NSClass& MVAuthorization::classObject() {
    static const NSClass c{"MVAuthorization", &NSObject::classObject(), nullptr};
    return c;
}

std::shared_ptr<MVAuthorization> MVAuthorization::sharedAuthorization() {
    auto& process = AuthorizationState::current();
    std::call_once(process.once, [] { init(); });
    const std::lock_guard lock(process.mutex);
    return process.shared;
}

std::shared_ptr<MVAuthorization> MVAuthorization::init() {
    auto& process = AuthorizationState::current();
    const std::lock_guard lock(process.mutex);
    if (process.shared)
        return process.shared;
    auto authorization = std::make_shared<MVAuthorization>(Creation());
    auto& services = AuthorizationServices::current();
    if (services.AuthorizationCreate(kAuthorizationFlagDefaults, &authorization->authRef_) != 0) {
        return nullptr;
    }
    if (!defineMissingRights(authorization->authRef_))
        return nullptr;
    process.shared = authorization;
    return authorization;
}

MVAuthorization::~MVAuthorization() {
    AuthorizationServices::current().AuthorizationFree(authRef_, kAuthorizationFlagDestroyRights);
}

bool MVAuthorization::authorizeRight(const char* right, NSErrorRef* error) {
    auto failure = obtain(right);
    const bool obtained = !failure;
    if (error)
        *error = std::move(failure);
    return obtained;
}

NSErrorRef MVAuthorization::obtain(const char* right) {
    auto& services = AuthorizationServices::current();
    auto& helperInstalled = AuthorizationState::current().helperInstalled;
    std::vector<AuthorizationItem> items{{right}};
    if (!helperInstalled)
        items.push_back({kSMRightBlessPrivilegedHelper});
    const auto status = services.AuthorizationCopyRights(authRef_, items,
                                                         kAuthorizationFlagInteractionAllowed |
                                                             kAuthorizationFlagExtendRights |
                                                             kAuthorizationFlagPreAuthorize);
    if (status != errAuthorizationSuccess) {
        return describedError(
            NSOSStatusErrorDomain, status,
            "Authorization rights error: " + services.SecCopyErrorMessageString(status));
    }
    if (helperInstalled)
        return nullptr;
    if (const auto code =
            services.SMJobBless(kSMDomainSystemLaunchd, MVPrivilegedHelperName, authRef_)) {
        return describedError(
            MVErrorDomainLaunchd, *code,
            std::string("Privileged job install error: ") + installErrorText(*code));
    }
    helperInstalled = true;
    return nullptr;
}

const AuthorizationRef& MVAuthorization::authRef() const {
    return authRef_;
}

void MVAuthorization::setAuthRef(AuthorizationRef reference) {
    authRef_ = std::move(reference);
}

}  // namespace morvane
