#include <MorvaneOperation/platform/dispatch/MainLoop.h>

#include <utility>

namespace morvane {
namespace {

std::shared_ptr<MainLoop>& replacement() {
    // Never destroyed: other threads may use the loop while the process ends.
    static auto& loop = *new std::shared_ptr<MainLoop>;
    return loop;
}

}  // namespace

MainLoop::~MainLoop() = default;

MainLoop& MainLoop::current() {
    if (const auto& loop = replacement())
        return *loop;
    static const auto& system = *new std::shared_ptr<MainLoop>(systemMainLoop());
    return *system;
}

void MainLoop::setCurrent(std::shared_ptr<MainLoop> loop) {
    replacement() = std::move(loop);
}

}  // namespace morvane
