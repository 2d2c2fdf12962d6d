// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>
#include <MorvaneOperation/platform/linux/InstalledPlaces.h>
#include <MorvaneOperation/platform/linux/PeerProcess.h>
#include <MorvaneOperation/platform/security/AuthorizationServices.h>
#include <MorvaneOperation/platform/security/ProcessRights.h>

/// The part of the shared library that needs GLib, GIO, ICU or libsystemd is a module of its own,
/// so that a program that needs none of it does not load some twenty libraries at its start. It is
/// loaded, whole, when the first of it is wanted, and stays. What an archive is linked to has the
/// same part built in.
namespace morvane {

/// What the library takes of the module.
struct DesktopModule {
    decltype(&systemMainLoop) mainLoop;
    decltype(&systemFileInformation) fileInformation;
    decltype(&systemDefaultsStore) defaultsStore;
    decltype(&systemNumberFormatters) numberFormatters;
    decltype(&systemAuthorizationServices) authorizationServices;
    decltype(&connectToPolicy) connection;
    decltype(&rightOfProcess) right;
};

/// What the module takes of the library beyond that which all programs can.
struct DesktopModuleNeeds {
    decltype(&packageProgramFolder) programFolder;
    decltype(&packageDataFolder) dataFolder;
    decltype(&startTimeOfProcess) startTime;
};

/// The one function that the module exports. Called once.
using DesktopModuleEntry = const DesktopModule*(const DesktopModuleNeeds&);
inline constexpr const char* desktopModuleEntry = "morvaneDesktopModule";

}  // namespace morvane
