// SPDX-License-Identifier: MIT
#include "Capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace morvane {

int keepNeededCapabilities() {
    // To read and to change lists, owners and names of what belongs to others.
    constexpr std::array<std::uint32_t, 5> needed{CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH,
                                                  CAP_FOWNER, CAP_FSETID};
    for (std::uint32_t capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
        if (std::find(needed.begin(), needed.end(), capability) == needed.end() &&
            prctl(PR_CAPBSET_DROP, capability) != 0 && errno != EPERM)
            return errno;
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> sets{};
    for (const auto capability : needed) {
        sets[0].effective |= 1U << capability;
        sets[0].permitted |= 1U << capability;
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        syscall(SYS_capset, &header, sets.data()) != 0)
        return errno;
    return 0;
}

}  // namespace morvane
