// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/HelperInstallation.h>
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <MorvaneOperation/platform/linux/SpawnAttributes.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace morvane {
namespace {

constexpr const char* elevation = "/usr/bin/pkexec";
constexpr const char* unitFolder = "/etc/systemd/system/";
constexpr std::array maskFolders{unitFolder, "/run/systemd/system/"};
constexpr const char* policyFolder = "/usr/share/polkit-1/actions/";
/// Where a distribution's package has its units, and its helper serves every installation.
constexpr const char* unitFolderOfPackages = "/usr/lib/systemd/system/";

std::string installer() {
    return packageProgramFolder() + "/morvane-install-helper";
}

/// Whether a process of root listens at root's socket. The connection may start the helper.
bool isListening(const std::string& label) {
    const auto path = "/run/" + label + ".sock";
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode) || status.st_uid != 0)
        return false;
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    // If the backlog is full, somebody listens as well.
    const auto* const to = reinterpret_cast<const sockaddr*>(&address);
    return connect(socket.get(), to, sizeof address) == 0 || errno == EAGAIN;
}

/// Whether an installation was begun and not finished: the service manager may not have read the
/// new files yet. After a restart of the machine it has read them all.
bool isInstallationBegun(const std::string& label) {
    return access(("/run/" + label + ".installing").c_str(), F_OK) == 0;
}

std::optional<std::string> contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// Whether the installed file is the one of the package. A file that an administrator has edited
/// since counts as installed. It also counts if the package has no such file, as for a program that
/// was not installed, and if the file is used in the package's own folder, as with a distribution's
/// package: then none can be newer.
bool isUpToDate(const std::string& ofPackage, const std::string& folder, const std::string& left) {
    const auto wanted = contents(ofPackage);
    const auto slash = ofPackage.rfind('/');
    std::error_code error;
    if (!wanted || std::filesystem::equivalent(ofPackage.substr(0, slash), folder, error))
        return true;
    const auto name = ofPackage.substr(slash + 1);
    struct stat status {};
    return lstat((folder + name).c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
           wanted == contents(left + name);
}

/// Whether an administrator has masked the unit: it is a link to a device, or empty.
bool isMasked(const std::string& unit) {
    // For good, or until the machine starts anew.
    return std::any_of(maskFolders.begin(), maskFolders.end(), [&](const char* folder) {
        struct stat status {};
        return stat((folder + unit).c_str(), &status) == 0 && !S_ISDIR(status.st_mode) &&
               status.st_size == 0;
    });
}

std::optional<std::int64_t> codeOfInstaller(int status) {
    if (!WIFEXITED(status))
        return kSMErrorInternalFailure;
    constexpr int dismissed = 126;
    constexpr int notAuthorized = 127;
    switch (const int code = WEXITSTATUS(status)) {
        case 0:
            return std::nullopt;
        case dismissed:
            return kSMErrorLaunchDeniedByUser;
        case notAuthorized:
            return kSMErrorAuthorizationFailure;
        default:
            // The installer exits with the codes of this table.
            return code >= kSMErrorInternalFailure && code <= kSMErrorAlreadyRegistered
                       ? code
                       : static_cast<int>(kSMErrorInternalFailure);
    }
}

/// Returns nothing on success.
std::optional<std::int64_t> runElevated(const std::string& label) {
    const auto program = installer();
    const std::array<const char*, 4> arguments{elevation, "--disable-internal-agent",
                                               program.c_str(), nullptr};
    const SpawnAttributes spawn;
    pid_t child = 0;
    if (posix_spawn(&child, elevation, nullptr, &spawn.attributes,
                    const_cast<char* const*>(arguments.data()), environ) != 0)
        return kSMErrorServiceUnavailable;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno == EINTR)
            continue;
        // The installer has ended, but the application reaps or ignores its children and so has
        // taken the status.
        return isHelperInstalled(label) ? std::nullopt
                                        : std::optional<std::int64_t>(kSMErrorInternalFailure);
    }
    return codeOfInstaller(status);
}

}  // namespace

bool isHelperInstalled(const std::string& label) {
    if (!isListening(label) || isInstallationBegun(label))
        return false;
    if (access((unitFolderOfPackages + label + ".socket").c_str(), F_OK) == 0)
        return true;
    const auto left = "/var/lib/" + label + "/";
    const auto units = packageDataFolder() + "/morvaneoperation/";
    const auto policies = packageDataFolder() + "/polkit-1/actions/";
    const auto name = label.substr(0, label.rfind('.'));
    return isUpToDate(units + label + ".service", unitFolder, left) &&
           isUpToDate(units + label + ".socket", unitFolder, left) &&
           isUpToDate(policies + name + ".policy", policyFolder, left) &&
           isUpToDate(policies + installHelperRight + ".policy", policyFolder, left);
}

std::optional<std::int64_t> obstacleToHelper(const std::string& label) {
    if (isMasked(label + ".service") || isMasked(label + ".socket"))
        return kSMErrorJobMustBeEnabled;
    if (access(installer().c_str(), X_OK) != 0)
        return kSMErrorToolNotValid;
    if (access(elevation, X_OK) != 0)
        return kSMErrorServiceUnavailable;
    return std::nullopt;
}

std::optional<std::int64_t> installHelper(const std::string& label) {
    if (const auto code = obstacleToHelper(label))
        return code;
    if (const auto code = runElevated(label))
        return code;
    return isListening(label) ? std::nullopt : std::optional<std::int64_t>(kSMErrorJobNotFound);
}

}  // namespace morvane
