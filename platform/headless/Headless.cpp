// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>

#include <cerrno>
#include <memory>
#include <string>

/// What a service has in place of a desktop. It shows nothing to anybody and has no settings, so it
/// needs neither GLib's loop nor GIO nor ICU, and the helper that runs as root does not load them.
namespace morvane {
namespace {

class NoMainLoop final : public MainLoop {
  public:
    void runOnNextTurn(std::function<void()>) override {
        throw NSException(NSInvalidArgumentException, "A service has no main loop.");
    }
    bool isLoopThread() const override { return false; }
};

class NoFileInformation final : public FileInformation {
  public:
    NSURLResourceValues read(const NSURL&) override { return {}; }
};

class NoSettings final : public DefaultsStore {
  public:
    Values load() override { return {}; }
    NSErrorRef save(std::string_view, std::string_view) override {
        return NSError::errorWithDomain(NSPOSIXErrorDomain, EROFS);
    }
    void watch(std::function<void()>) override {}
};

class PlainNumberFormatter final : public NSNumberFormatter {
  public:
    std::string stringFromNumber(std::int64_t number) const override {
        return std::to_string(number);
    }
};

}  // namespace

std::shared_ptr<MainLoop> systemMainLoop() {
    return std::make_shared<NoMainLoop>();
}

std::shared_ptr<FileInformation> systemFileInformation() {
    return std::make_shared<NoFileInformation>();
}

std::shared_ptr<DefaultsStore> systemDefaultsStore() {
    return std::make_shared<NoSettings>();
}

NSNumberFormatter::Maker systemNumberFormatters() {
    return [](std::string_view) { return std::make_unique<PlainNumberFormatter>(); };
}

}  // namespace morvane
