// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/Export.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace morvane {

using OSStatus = std::int32_t;

enum : OSStatus {
    errAuthorizationSuccess = 0,
    /// The system does not answer for such a right: it is not defined, for example.
    errAuthorizationInvalidSet = -60001,
    /// The reference is empty.
    errAuthorizationInvalidRef = -60002,
    /// The right is refused; of AuthorizationRightGet: it is not defined.
    errAuthorizationDenied = -60005,
    errAuthorizationCanceled = -60006,
    /// There is nobody to ask.
    errAuthorizationInteractionNotAllowed = -60007,
    errAuthorizationInternal = -60008,
    /// The right was granted longer ago than it holds, and cannot be asked for anew yet.
    errAuthorizationExpired = -60040,
};

enum AuthorizationFlags : std::uint32_t {
    kAuthorizationFlagDefaults = 0,
    kAuthorizationFlagInteractionAllowed = 1,
    kAuthorizationFlagExtendRights = 2,
    kAuthorizationFlagDestroyRights = 8,
    kAuthorizationFlagPreAuthorize = 16,
};

/// Codes of SMJobBless.
enum : std::int64_t {
    kSMErrorInternalFailure = 2,
    kSMErrorInvalidSignature = 3,
    kSMErrorAuthorizationFailure = 4,
    kSMErrorToolNotValid = 5,
    kSMErrorJobNotFound = 6,
    kSMErrorServiceUnavailable = 7,
    kSMErrorJobPlistNotFound = 8,
    kSMErrorJobMustBeEnabled = 9,
    kSMErrorInvalidPlist = 10,
    kSMErrorLaunchDeniedByUser = 11,
    kSMErrorAlreadyRegistered = 12,
};

/// Where helpers are installed: the system's service manager.
inline constexpr const char* kSMDomainSystemLaunchd = "kSMDomainSystemLaunchd";
/// The right to install a helper.
inline constexpr const char* kSMRightBlessPrivilegedHelper =
    "com.apple.ServiceManagement.blesshelper";

/// What the rights obtained so far are kept under; null is an empty reference.
class MORVANE_EXPORT AuthorizationReference {
  public:
    virtual ~AuthorizationReference();
};
using AuthorizationRef = std::shared_ptr<AuthorizationReference>;

/// One right that is asked for. No value travels with it.
struct AuthorizationItem {
    std::string name;
    std::uint64_t valueLength = 0;
    std::uint32_t flags = 0;
    bool operator==(const AuthorizationItem&) const = default;
};

/// Who gets a right, and how: the rule in the policy database.
struct AuthorizationRule {
    /// "user": the user authenticates.
    std::string ruleClass;
    /// ... as a member of this group.
    std::string group;
    /// Seconds for which a granted right holds.
    std::int64_t timeout = 0;
    /// Whether the grant serves other references too.
    bool shared = false;
    /// Whether root gets the right unasked.
    bool allowRoot = false;
    bool operator==(const AuthorizationRule&) const = default;
};

/// The system's authorization: a policy database of rights, a way to obtain them for the user, and
/// the installer of the privileged helper. Supplied by the system, or by a test.
///
/// A status of 0 is success. Any thread.
class MORVANE_EXPORT AuthorizationServices {
  public:
    virtual ~AuthorizationServices();

    virtual OSStatus AuthorizationCreate(std::uint32_t flags, AuthorizationRef* reference) = 0;
    /// errAuthorizationDenied: the right is not defined.
    virtual OSStatus AuthorizationRightGet(const std::string& name) = 0;
    /// Defines a right. `descriptionKey` is the prompt, looked up in the host's own texts; no
    /// bundle and no table are named.
    virtual OSStatus AuthorizationRightSet(const AuthorizationRef& reference,
                                           const std::string& name, const AuthorizationRule& rule,
                                           const std::string& descriptionKey) = 0;
    /// May ask the user, and block for as long as the user takes. A password that the user gave for
    /// one right serves the others of this process too, for as long as a right holds.
    virtual OSStatus AuthorizationCopyRights(const AuthorizationRef& reference,
                                             const std::vector<AuthorizationItem>& rights,
                                             std::uint32_t flags) = 0;
    /// With kAuthorizationFlagDestroyRights what was obtained under the reference is given up, and
    /// nothing else. Harmless for an empty reference.
    virtual OSStatus AuthorizationFree(const AuthorizationRef& reference, std::uint32_t flags) = 0;
    virtual std::string SecCopyErrorMessageString(OSStatus status) = 0;
    /// Installs the helper `label`. Empty on success, otherwise the error's code.
    virtual std::optional<std::int64_t> SMJobBless(const std::string& domain,
                                                   const std::string& label,
                                                   const AuthorizationRef& reference) = 0;

    static AuthorizationServices& current();
    /// For tests; null puts the system's back.
    static void setCurrent(std::shared_ptr<AuthorizationServices> services);
};

/// Defined by the Linux platform.
std::shared_ptr<AuthorizationServices> systemAuthorizationServices();

}  // namespace morvane
