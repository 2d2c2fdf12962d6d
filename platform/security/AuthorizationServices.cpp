#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<AuthorizationServices>& replacement() {
    static std::shared_ptr<AuthorizationServices> services;
    return services;
}

}  // namespace

AuthorizationReference::~AuthorizationReference() = default;
AuthorizationServices::~AuthorizationServices() = default;

AuthorizationServices& AuthorizationServices::current() {
    if (const auto& services = replacement())
        return *services;
    static const auto system = systemAuthorizationServices();
    return *system;
}

void AuthorizationServices::setCurrent(std::shared_ptr<AuthorizationServices> services) {
    replacement() = std::move(services);
}

}  // namespace morvane
