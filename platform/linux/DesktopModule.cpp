// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/DesktopModule.h>

/// The module's side.
namespace morvane {
namespace {
DesktopModuleNeeds library;
}  // namespace

const std::string& packageProgramFolder() {
    return library.programFolder();
}

const std::string& packageDataFolder() {
    return library.dataFolder();
}

std::uint64_t startTimeOfProcess(std::int64_t pid) {
    return library.startTime(pid);
}

extern "C" MORVANE_EXPORT const DesktopModule* morvaneDesktopModule(
    const DesktopModuleNeeds& needs) {
    static constexpr DesktopModule module{
        systemMainLoop,         systemFileInformation,       systemDefaultsStore,
        systemNumberFormatters, systemAuthorizationServices, connectToPolicy,
        rightOfProcess};
    library = needs;
    return &module;
}

}  // namespace morvane
