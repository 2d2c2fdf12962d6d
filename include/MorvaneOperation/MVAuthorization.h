// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSObject.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <memory>

namespace morvane {

inline constexpr const char* MVErrorDomainLaunchd = "CFErrorDomainLaunchd";

/// The one holder of the process's authorization: defines the rights of the privileged file service
/// where they are missing, obtains them for the user, and has the privileged helper installed the
/// first time that one is obtained.
///
///     NSErrorRef error;
///     auto authorization = MVAuthorization::sharedAuthorization();
///     if (!authorization || !authorization->authorizeRight(MVRightGetFileAcl, &error))
///         show(error);
///
/// Threads: sharedAuthorization() is safe from any thread. authorizeRight() blocks its caller for
/// as long as the system asks the user; it takes no lock, and two first calls at once may both
/// install the helper.
///
/// Failure: an error of NSOSStatusErrorDomain with the system's code when the right is not
/// obtained, of MVErrorDomainLaunchd with the installer's code when the helper cannot be installed;
/// each has a description and nothing else.
class MORVANE_EXPORT MVAuthorization final : public NSObject {
  public:
    static const NSClass& classObject();
    const NSClass& objectClass() const override { return classObject(); }

    /// Made on the first call, and only then: null for good if that fails, until an init()
    /// succeeds.
    static std::shared_ptr<MVAuthorization> sharedAuthorization();
    /// The shared instance; if there is none, makes it. Null if the system refuses a reference or a
    /// right cannot be defined.
    static std::shared_ptr<MVAuthorization> init();
    ~MVAuthorization() override;

    /// Obtains `right` (its full name). True when it is granted and the helper is installed;
    /// `error` may be null, and is set to null on success.
    bool authorizeRight(const char* right, NSErrorRef* error);

    const AuthorizationRef& authRef() const;
    void setAuthRef(AuthorizationRef reference);

    /// What only init() can make: a permission to construct.
    class Creation {
        friend class MVAuthorization;
        explicit Creation() = default;
    };
    explicit MVAuthorization(Creation) {}

  private:
    NSErrorRef obtain(const char* right);

    AuthorizationRef authRef_;
};

}  // namespace morvane
