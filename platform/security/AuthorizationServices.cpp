// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/SystemPart.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <utility>

namespace morvane {
namespace {

SystemPart<AuthorizationServices>& authorizationServices() {
    static auto& part = *new SystemPart<AuthorizationServices>(systemAuthorizationServices);
    return part;
}

}  // namespace

AuthorizationReference::~AuthorizationReference() = default;
AuthorizationServices::~AuthorizationServices() = default;

AuthorizationServices& AuthorizationServices::current() {
    return authorizationServices().current();
}

void AuthorizationServices::setCurrent(std::shared_ptr<AuthorizationServices> services) {
    authorizationServices().replace(std::move(services));
}

}  // namespace morvane
