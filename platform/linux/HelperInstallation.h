// SPDX-License-Identifier: MIT
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

/// Whether the service manager listens for the helper `label`, as root, the installer has put what
/// the package holds, and no installation was left half done. Whoever listens is connected to for a
/// moment.
bool isHelperInstalled(const std::string& label);

/// Why the helper cannot be installed whatever the user answers, as a code of SMJobBless: the
/// administrator has masked its unit, or the package or the elevation is not there.
std::optional<std::int64_t> obstacleToHelper(const std::string& label);

/// Runs the package's installer as root, unless an obstacle is known. It blocks for as long as the
/// user is asked. Empty on success, otherwise one of the codes of SMJobBless.
std::optional<std::int64_t> installHelper(const std::string& label);

}  // namespace morvane
