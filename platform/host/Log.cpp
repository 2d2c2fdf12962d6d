// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/host/Log.h>

#include <iostream>
#include <mutex>
#include <string>
#include <utility>

namespace morvane {
namespace {

struct Sink {
    std::mutex mutex;
    std::function<void(std::string_view)> function;
};

Sink& sink() {
    static auto* const s = new Sink;
    return *s;
}

}  // namespace

void logLine(std::string_view line) {
    std::function<void(std::string_view)> function;
    {
        const std::lock_guard lock(sink().mutex);
        function = sink().function;
    }
    if (function) {
        function(line);
    } else {
        std::clog << std::string(line) + "\n" << std::flush;
    }
}

void setLogSink(std::function<void(std::string_view)> function) {
    const std::lock_guard lock(sink().mutex);
    std::swap(sink().function, function);
}

}  // namespace morvane
