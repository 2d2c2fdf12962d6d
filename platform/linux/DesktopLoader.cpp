// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/host/Log.h>
#include <MorvaneOperation/platform/linux/DesktopModule.h>
#include <dlfcn.h>

/// The library's side: what stands here in the place of the real parts hands on to those in the
/// module.
namespace morvane {
namespace {

const DesktopModule& load() {
    // The file lies below the library's own folder, which nobody can write to who could not change
    // the library as well; no variable tells another place. The folder's name is the version's: the
    // two are of one make, also where a package was replaced while a program runs.
    const auto file = packageCodeFolder() + "/" + MORVANE_DESKTOP_MODULE;
    void* const module = dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
    void* const entry = module ? dlsym(module, desktopModuleEntry) : nullptr;
    if (!entry) {
        throw NSException(NSInternalInconsistencyException,
                          "MorvaneOperation cannot load its part \"" + file + "\" (" + dlerror() +
                              "). Install the library again; if it was replaced while this "
                              "program ran, start the program anew.");
    }
    return *reinterpret_cast<DesktopModuleEntry*>(entry)(
        {packageProgramFolder, packageDataFolder, startTimeOfProcess});
}

/// Any thread. Tried again by the next one where it fails.
const DesktopModule& desktop() {
    static const DesktopModule& module = load();
    return module;
}

}  // namespace

std::shared_ptr<MainLoop> systemMainLoop() {
    return desktop().mainLoop();
}

std::shared_ptr<FileInformation> systemFileInformation() {
    return desktop().fileInformation();
}

std::shared_ptr<DefaultsStore> systemDefaultsStore() {
    return desktop().defaultsStore();
}

NSNumberFormatter::Maker systemNumberFormatters() {
    return desktop().numberFormatters();
}

std::shared_ptr<AuthorizationServices> systemAuthorizationServices() {
    return desktop().authorizationServices();
}

bool connectToPolicy() {
    return desktop().connection();
}

RightState rightOfProcess(const ProcessIdentity& process, const std::string& right) {
    return desktop().right(process, right);
}

}  // namespace morvane
