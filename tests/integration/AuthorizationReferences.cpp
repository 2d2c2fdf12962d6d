// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <string>

/// Uses the system's authorization as it is told on its input, a line at a time: "obtain NAME
/// RIGHT" under the reference NAME, which is made when it is first named, and "free NAME". The
/// reference "nobody" is empty. Prints each status, and its text.
int main() {
    using namespace morvane;
    auto& services = AuthorizationServices::current();
    std::map<std::string, AuthorizationRef> references{{"nobody", nullptr}};
    for (std::string verb, name; std::cin >> verb >> name;) {
        const auto [reference, isNew] = references.try_emplace(name);
        if (isNew)
            services.AuthorizationCreate(kAuthorizationFlagDefaults, &reference->second);
        OSStatus status = errAuthorizationSuccess;
        if (std::string right; verb == "free") {
            status = services.AuthorizationFree(reference->second, kAuthorizationFlagDestroyRights);
        } else if (std::cin >> right) {
            status = services.AuthorizationCopyRights(
                reference->second, {{right}},
                kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights);
        }
        std::printf("%d %s\n", status, services.SecCopyErrorMessageString(status).c_str());
        std::fflush(stdout);
    }
}
