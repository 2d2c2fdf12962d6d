// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Where the package's own files are. They are found relative to the file that this code was loaded
/// from, so that an installation can be moved; if there is nothing, as for a program that has the
/// library built in, they are where the build was configured to install them. The functions may be
/// called on any thread, and none reads the disk again after the first call.
namespace morvane {

/// The folder of the service programs and of the helper's installer, without a slash at its end.
const std::string& packageProgramFolder();
/// The folder of the library, or of the program that has it built in, without a slash at its end.
const std::string& packageCodeFolder();
/// The folder of data that does not depend on the machine ("share"), without a slash at its end.
const std::string& packageDataFolder();

}  // namespace morvane
