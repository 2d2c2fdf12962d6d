// SPDX-License-Identifier: MIT
#pragma once

/// Has the library's main queue run on the event loop of the QCoreApplication, which may be one
/// without GLib. Once in a process, as soon as there is a QCoreApplication and this library; every
/// class that needs it calls it too, so that it is linked from an archive. On the application's
/// thread.
void useQtMainLoop();
