// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>
#include <spawn.h>

namespace morvane {

/// The attributes for posix_spawn(). The program starts with no signal blocked or ignored, whatever
/// the application does with its own signals: programs rely on being notified when their children
/// end.
class SpawnAttributes {
  public:
    explicit SpawnAttributes(int moreFlags = 0) {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes, &signals);
        const int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | moreFlags;
        posix_spawnattr_setflags(&attributes, static_cast<short>(flags));
    }
    ~SpawnAttributes() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace morvane
