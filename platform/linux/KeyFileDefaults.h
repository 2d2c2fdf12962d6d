// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <memory>
#include <string>

/// User defaults in a key file, "$XDG_CONFIG_HOME/morvaneoperation/defaults.ini".
///
/// A save replaces the file atomically and keeps what it does not understand; a file that cannot be
/// read is never overwritten. Saves of several processes wait for one another, so that none is
/// lost. Where the path is a symbolic link, the file that it leads to is replaced and watched as
/// well. Changes are watched on a thread of the store's own; if no thread can be started, they are
/// not reported. That thread ends before the process's exit() takes down what it uses.
namespace morvane {

class KeyFileDefaults final : public DefaultsStore {
  public:
    explicit KeyFileDefaults(std::string path);
    ~KeyFileDefaults() override;

    Values load() override;
    NSErrorRef save(std::string_view key, std::string_view value) override;
    void watch(std::function<void()> changed) override;

  private:
    struct Watch;
    class RunningWatches;
    std::string path_;
    std::unique_ptr<Watch> watch_;
};

}  // namespace morvane
