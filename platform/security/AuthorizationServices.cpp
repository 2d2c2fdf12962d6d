#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<AuthorizationServices>& replacement() {
    // Never destroyed: other threads may use them while the process ends.
    static auto& services = *new std::shared_ptr<AuthorizationServices>;
    return services;
}

}  // namespace

AuthorizationReference::~AuthorizationReference() = default;
AuthorizationServices::~AuthorizationServices() = default;

AuthorizationServices& AuthorizationServices::current() {
    if (const auto& services = replacement())
        return *services;
    static const auto& system =
        *new std::shared_ptr<AuthorizationServices>(systemAuthorizationServices());
    return *system;
}

void AuthorizationServices::setCurrent(std::shared_ptr<AuthorizationServices> services) {
    replacement() = std::move(services);
}

}  // namespace morvane
