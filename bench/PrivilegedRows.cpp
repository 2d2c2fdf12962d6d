// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAuthorization.h>
#include <gio/gio.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

#include "FileService.h"
#include "FileTree.h"
#include "Rows.h"

namespace bench {
namespace {

using namespace morvane;

void obtain(const char* right) {
    NSErrorRef error;
    const auto authorization = MVAuthorization::sharedAuthorization();
    if (!authorization || !authorization->authorizeRight(right, &error))
        throw std::runtime_error(std::string("the right ") + right + " is not to be had" +
                                 (error ? ": " + error->localizedDescription() : "") +
                                 "; run bench/run as root, which brings polkit and the helper");
}

std::uint64_t startTimeOfThisProcess() {
    std::ifstream file("/proc/self/stat");
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    auto at = text.rfind(')');
    for (int i = 0; i != 20; ++i)
        at = text.find(' ', at + 1);
    return std::stoull(text.substr(at + 1));
}

/// One question to polkit about this process, without asking the user.
class PolicyQuestion {
  public:
    PolicyQuestion() : bus_(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr)) {
        if (!bus_)
            throw std::runtime_error("there is no system bus");
    }
    ~PolicyQuestion() { g_object_unref(bus_); }
    PolicyQuestion(const PolicyQuestion&) = delete;
    PolicyQuestion& operator=(const PolicyQuestion&) = delete;

    bool isAuthorized(const char* action) {
        GVariantBuilder subject;
        g_variant_builder_init(&subject, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&subject, "{sv}", "pid",
                              g_variant_new_uint32(static_cast<guint32>(getpid())));
        g_variant_builder_add(&subject, "{sv}", "start-time", g_variant_new_uint64(startTime_));
        g_variant_builder_add(&subject, "{sv}", "uid",
                              g_variant_new_int32(static_cast<gint32>(getuid())));
        GVariant* const answer = g_dbus_connection_call_sync(
            bus_, "org.freedesktop.PolicyKit1", "/org/freedesktop/PolicyKit1/Authority",
            "org.freedesktop.PolicyKit1.Authority", "CheckAuthorization",
            g_variant_new("((sa{sv})sa{ss}us)", "unix-process", &subject, action, nullptr, 0U, ""),
            nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        gboolean yes = FALSE;
        if (answer) {
            g_variant_get(answer, "((bba{ss}))", &yes, nullptr, nullptr);
            g_variant_unref(answer);
        }
        return yes != FALSE;
    }
    void ask(const char* action) {
        if (!isAuthorized(action))
            throw std::runtime_error("polkit does not say yes");
    }

  private:
    GDBusConnection* const bus_;
    const std::uint64_t startTime_ = startTimeOfThisProcess();
};

/// What a process has used so far, as anyone may look at it.
struct Use {
    explicit Use(std::int64_t process) {
        const auto folder = "/proc/" + std::to_string(process);
        std::ifstream stat(folder + "/stat");
        std::string word;
        std::getline(stat, word, ')');
        constexpr int userTime = 14;
        for (int field = 3; field != userTime; ++field)
            stat >> word;
        double user = 0;
        double system = 0;
        stat >> user >> system;
        seconds = (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
        std::ifstream status(folder + "/status");
        while (status >> word && word != "VmHWM:") {
        }
        status >> kibibytes;
        if (!stat || !status)
            throw std::runtime_error("the helper's process cannot be looked at");
    }
    double seconds = 0;
    /// At most, of memory.
    std::int64_t kibibytes = 0;
};

void beRefused(FileService& service, const std::string& name) {
    try {
        service.rename({NSURL::fileURLWithPath("/")}, {name});
    } catch (const std::runtime_error& refusal) {
        if (std::string(refusal.what()).find("is not held") != std::string::npos)
            return;
        throw;
    }
    throw std::runtime_error("a request whose right is not held was carried out");
}

}  // namespace

/// Before the rows that obtain a right, which would serve for this one too.
Lines refusedRequest(const Options& options) {
    FileService privileged(FileService::Kind::privileged);
    const std::string megabyte(std::size_t{1} << 20, 'x');
    beRefused(privileged, "warm");
    constexpr int times = 500;
    const Use before(privileged.processIdentifier());
    for (int i = 0; i != times; ++i)
        beRefused(privileged, megabyte);
    const Use after(privileged.processIdentifier());
    const auto microseconds = (after.seconds - before.seconds) * 1e6 / times;
    PolicyQuestion polkit;
    return compare({.row = "refused-request",
                    .ours = {"", repeated([&] { beRefused(privileged, megabyte); })},
                    .peers = {{"polkit check",
                               repeated([&] { keep(polkit.isAuthorized(MVRightRenameFiles)); })}},
                    .required = {},
                    .limit = {},
                    .note = "the helper's own: " + std::to_string(std::lround(microseconds)) +
                            " us of processor time for each, and " +
                            std::to_string(after.kibibytes - before.kibibytes) +
                            " KiB more memory after " + std::to_string(times)},
                   options);
}

Lines privilegedList(const Options& options) {
    obtain(MVRightGetFileAcl);
    const morvane::TemporaryFolder folder;
    const std::string path = folder.path() / "file";
    makeFile(path);
    FileService privileged(FileService::Kind::privileged);
    FileService own;
    PolicyQuestion polkit;
    return compare({.row = "privileged-list",
                    .ours = {"", repeated([&] { keep(privileged.aclOf(path)); })},
                    .peers = {{"polkit check", repeated([&] { polkit.ask(MVRightGetFileAcl); })},
                              {"file service", repeated([&] { keep(own.aclOf(path)); })}},
                    .required = Requirement::atMostTimes(1.2),
                    .limit = {},
                    .note = {}},
                   options);
}

Lines authorizeHeld(const Options& options) {
    obtain(MVRightGetFileAcl);
    PolicyQuestion polkit;
    return compare({.row = "authorize-held",
                    .ours = {"", repeated([] { obtain(MVRightGetFileAcl); })},
                    .peers = {{"polkit check", repeated([&] { polkit.ask(MVRightGetFileAcl); })}},
                    .required = {},
                    .limit = {},
                    .note = {}},
                   options);
}

}  // namespace bench
