// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/// Where the package's own files are. They are found relative to the file that this code was loaded
/// from, so that an installation works wherever it stands; where nothing lies there, as for a
/// program that has the library built in, they are where the build was configured to install them.
/// Any thread; neither touches the disk again after the first call.
namespace morvane {

/// The folder of the service programs and of the helper's installer; no slash at its end.
const std::string& packageProgramFolder();
/// The folder of data that does not depend on the machine ("share"); no slash at its end.
const std::string& packageDataFolder();

}  // namespace morvane
