// SPDX-License-Identifier: MIT
// How soon a window shows what there is to see.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "FileTree.h"
#include "Rows.h"
#include "TemporaryFolder.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

/// A program that was started, and is ended with this.
class Program {
  public:
    /// `inherited` stays open there as descriptor 3; -1 for none.
    explicit Program(std::vector<std::string> arguments, int inherited = -1) {
        std::vector<char*> texts;
        for (auto& argument : arguments)
            texts.push_back(argument.data());
        texts.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (inherited >= 0)
            posix_spawn_file_actions_adddup2(&actions, inherited, 3);
        const int code =
            posix_spawnp(&process_, texts[0], &actions, nullptr, texts.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (code != 0)
            throw std::system_error(code, std::generic_category(), arguments[0]);
    }
    ~Program() {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

  private:
    pid_t process_ = 0;
};

/// An X server of its own, in memory, that tells when something is drawn into a window.
class Display {
  public:
    Display() {
        int descriptors[2];
        if (pipe2(descriptors, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe");
        server_ = std::make_unique<Program>(
            std::vector<std::string>{"Xvfb", "-displayfd", "3", "-screen", "0", "1280x1024x24",
                                     "-nolisten", "tcp"},
            descriptors[1]);
        close(descriptors[1]);
        std::string number;
        for (char c = 0; read(descriptors[0], &c, 1) == 1 && c != '\n';)
            number += c;
        close(descriptors[0]);
        name_ = ":" + number;
        connection_ = xcb_connect(name_.c_str(), nullptr);
        if (number.empty() || xcb_connection_has_error(connection_))
            throw std::runtime_error("Xvfb does not start");
        const auto* const damage = xcb_get_extension_data(connection_, &xcb_damage_id);
        if (!damage || !damage->present)
            throw std::runtime_error("Xvfb does not tell what is drawn");
        damageNotify_ = damage->first_event + XCB_DAMAGE_NOTIFY;
        std::free(xcb_damage_query_version_reply(
            connection_, xcb_damage_query_version(connection_, 1, 1), nullptr));
        const auto root = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data->root;
        const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(connection_, root, XCB_CW_EVENT_MASK, &events);
        xcb_flush(connection_);
    }
    ~Display() { xcb_disconnect(connection_); }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    const std::string& name() const { return name_; }

    /// The nanoseconds from the start of the program until the last thing is drawn before a second
    /// in which nothing is.
    double untilDrawn(const std::vector<std::string>& program) {
        constexpr std::chrono::seconds quiet{1};
        const auto start = Clock::now();
        auto last = start;
        bool isMapped = false;
        {
            const Program window(program);
            while (!isMapped || Clock::now() - last < quiet) {
                if (Clock::now() - start > std::chrono::minutes(1))
                    throw std::runtime_error(program[0] +
                                             " opens no window, or never stands still");
                while (const auto event = next()) {
                    const auto kind = event->response_type & 0x7f;
                    if (kind == XCB_MAP_NOTIFY) {
                        const auto id =
                            reinterpret_cast<const xcb_map_notify_event_t&>(*event).window;
                        xcb_damage_create(connection_, xcb_generate_id(connection_), id,
                                          XCB_DAMAGE_REPORT_LEVEL_RAW_RECTANGLES);
                        xcb_flush(connection_);
                        isMapped = true;
                    }
                    if (kind == XCB_MAP_NOTIFY || kind == damageNotify_)
                        last = Clock::now();
                }
                pollfd waited{xcb_get_file_descriptor(connection_), POLLIN, 0};
                poll(&waited, 1, 20);
            }
        }
        while (next()) {
        }
        return std::chrono::duration<double, std::nano>(last - start).count();
    }

  private:
    struct Free {
        void operator()(xcb_generic_event_t* event) const { std::free(event); }
    };
    std::unique_ptr<xcb_generic_event_t, Free> next() {
        return std::unique_ptr<xcb_generic_event_t, Free>(xcb_poll_for_event(connection_));
    }

    std::unique_ptr<Program> server_;
    std::string name_;
    xcb_connection_t* connection_ = nullptr;
    int damageNotify_ = 0;
};

/// A file with entries for that many users.
std::string fileWithEntries(const std::filesystem::path& path, int entries) {
    makeFile(path);
    std::string list = "u::rw-,g::r--,o::r--";
    for (int i = 0; i < entries; ++i)
        list += ",u:" + std::to_string(100000 + i) + ":r--";
    runProgram({"setfacl", "-m", list, path});
    return path;
}

}  // namespace

Lines windowOpens(const Options& options) {
    // A disk has no room for a thousand entries.
    const morvane::TemporaryFolder folder("/dev/shm");
    const auto few = fileWithEntries(folder.path() / "few", 0);
    const auto many = fileWithEntries(folder.path() / "many", 1000);
    Display display;
    setenv("MORVANE_LIBEXEC_DIR", MORVANE_LIBEXEC, 1);
    setenv("DISPLAY", display.name().c_str(), 1);
    setenv("GDK_BACKEND", "x11", 1);
    setenv("GSK_RENDERER", "cairo", 1);
    setenv("GTK_A11Y", "none", 1);
    setenv("GSETTINGS_BACKEND", "memory", 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    setenv("HOME", folder.path().c_str(), 1);
    const auto opens = [&](std::vector<std::string> program) {
        return [&display, program = std::move(program)](std::size_t count) {
            double time = 0;
            for (std::size_t i = 0; i < count; ++i)
                time += display.untilDrawn(program);
            return time;
        };
    };
    auto lines = compare({.row = "window-opens",
                          .ours = {"", opens({MORVANE_PERMISSIONS, few})},
                          .peers = {{"an empty window", opens({MORVANE_EMPTY_WINDOW})}},
                          .required = Requirement::atMostTimes(1.3),
                          .limit = {},
                          .note = {}},
                         options);
    auto large = compare({.row = "window-opens-1000-entries",
                          .ours = {"", opens({MORVANE_PERMISSIONS, many})},
                          .peers = {{"with three", opens({MORVANE_PERMISSIONS, few})}},
                          .required = Requirement::atMostTimes(1.5),
                          .limit = {},
                          .note = {}},
                         options);
    lines.insert(lines.end(), large.begin(), large.end());
    return lines;
}

}  // namespace bench
