// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/dispatch/MainLoop.h>
#include <MorvaneOperation/platform/foundation/SystemPart.h>

#include <utility>

namespace morvane {
namespace {

SystemPart<MainLoop>& mainLoop() {
    static auto& part = *new SystemPart<MainLoop>(systemMainLoop);
    return part;
}

}  // namespace

MainLoop::~MainLoop() = default;

MainLoop& MainLoop::current() {
    return mainLoop().current();
}

void MainLoop::setCurrent(std::shared_ptr<MainLoop> loop) {
    mainLoop().replace(std::move(loop));
}

}  // namespace morvane
