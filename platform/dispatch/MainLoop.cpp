#include <MorvaneOperation/platform/dispatch/MainLoop.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<MainLoop>& replacement() {
    static std::shared_ptr<MainLoop> loop;
    return loop;
}

}  // namespace

MainLoop::~MainLoop() = default;

MainLoop& MainLoop::current() {
    if (const auto& loop = replacement())
        return *loop;
    static const auto system = systemMainLoop();
    return *system;
}

void MainLoop::setCurrent(std::shared_ptr<MainLoop> loop) {
    replacement() = std::move(loop);
}

}  // namespace morvane
