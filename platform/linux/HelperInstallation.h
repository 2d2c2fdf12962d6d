#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// The privileged helper's place in the system: its socket, its unit and the policy service's
/// actions. Any thread.
namespace morvane {

/// The helper that the right to install one is about.
inline constexpr const char* helperLabel = "io.github.morvaneoperation.PrivilegedHelper";
/// The right to put the helper into place, an action of the policy service.
inline constexpr const char* installHelperRight = "io.github.morvaneoperation.InstallHelper";

/// Whether the service manager listens for the helper `label`, as root, what it was told does not
/// differ from what the package holds, and no installation was left half done.
bool isHelperInstalled(const std::string& label);

/// Runs the package's installer as root. It blocks for as long as the user is asked. Empty on
/// success, otherwise one of the codes of SMJobBless.
std::optional<std::int64_t> installHelper(const std::string& label);

}  // namespace morvane
