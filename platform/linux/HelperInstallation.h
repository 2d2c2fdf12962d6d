// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// How the privileged helper is installed in the system: its socket, its unit and the policy
/// service's actions. All functions may be called on any thread.
namespace morvane {

/// The label of the helper that the right to install covers.
inline constexpr const char* helperLabel = "io.github.morvaneoperation.PrivilegedHelper";
/// The right to install the helper, which is an action of the policy service.
inline constexpr const char* installHelperRight = "io.github.morvaneoperation.InstallHelper";

/// Whether the service manager listens as root for the helper `label`, the installed files are
/// those of the package, and no installation was left unfinished. To find out, this connects to the
/// socket for a moment.
bool isHelperInstalled(const std::string& label);

/// Why the helper cannot be installed whatever the user answers, as a code of SMJobBless: the
/// administrator has masked its unit, or the package or the program that runs it as root is
/// missing.
std::optional<std::int64_t> obstacleToHelper(const std::string& label);

/// Runs the package's installer as root, unless an obstacle is known, and blocks for as long as the
/// user is asked. It returns nothing on success, otherwise one of the codes of SMJobBless.
std::optional<std::int64_t> installHelper(const std::string& label);

}  // namespace morvane
