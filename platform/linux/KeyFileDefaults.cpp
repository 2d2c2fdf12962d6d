// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/linux/FileDescriptor.h>
#include <MorvaneOperation/platform/linux/KeyFileDefaults.h>
#include <MorvaneOperation/platform/linux/KeyFileText.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace morvane {
namespace {

/// How long the end of a process waits for the threads that watch files. One of them may be held up
/// by an observer or by a file system that does not answer.
constexpr std::chrono::seconds longestEnd{1};

/// Settings take a few lines; a file that is larger than this is not one of ours.
constexpr std::size_t largestFile = 1 << 20;

/// Returns 0 or an errno value. A file that does not exist is read as an empty one.
int readFile(const std::string& path, std::string& text) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file)
        return errno == ENOENT ? 0 : errno;
    struct stat status;
    if (::fstat(file.get(), &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    char buffer[4096];
    for (;;) {
        const auto count = ::read(file.get(), buffer, sizeof buffer);
        if (count == 0)
            return 0;
        if (count < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        text.append(buffer, static_cast<std::size_t>(count));
        if (text.size() > largestFile)
            return EFBIG;
    }
}

int writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const auto count = ::write(descriptor, text.data(), text.size());
        if (count >= 0)
            text.remove_prefix(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

/// Returns 0 or an errno value. Readers see either the former file or the new one, even after a
/// crash.
int replaceFile(const std::string& path, std::string_view text) {
    struct stat former;
    const bool existed = ::stat(path.c_str(), &former) == 0;
    std::string temporary = path + ".XXXXXX";
    const FileDescriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file)
        return errno;
    int error = writeAll(file.get(), text);
    if (error == 0 && existed && ::fchmod(file.get(), former.st_mode & 0777) != 0)
        error = errno;
    if (error == 0 && ::fsync(file.get()) != 0)
        error = errno;
    if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        error = errno;
    if (error != 0)
        ::unlink(temporary.c_str());
    return error;
}

/// Returns the path and, if it is a symbolic link, each path to which it leads in turn. A person
/// may keep the file elsewhere and link to it, even before the file exists.
std::vector<std::string> placesOf(const std::string& path) {
    constexpr std::size_t mostLinks = 40;  // The kernel follows as many.
    std::vector<std::string> places{path};
    while (places.size() <= mostLinks) {
        std::error_code noLink;
        const auto next = std::filesystem::read_symlink(places.back(), noLink);
        if (noLink)
            break;
        places.push_back(std::filesystem::path(places.back()).replace_filename(next));
    }
    return places;
}

/// While this object exists, no other save of files in the folder can run, in this process or
/// another. It locks the folder, as a lock on the file would be lost when the file is replaced. On
/// a file system without locks, a save goes on without one.
class FolderLock {
  public:
    explicit FolderLock(const std::string& folder)
        : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (folder_ && ::flock(folder_.get(), LOCK_EX) != 0 && errno == EINTR) {
        }
    }

  private:
    FileDescriptor folder_;
};

NSErrorRef failure(int error, const std::string& path) {
    return error == 0
               ? nullptr
               : NSError::errorWithDomain(NSPOSIXErrorDomain, error, {{NSFilePathErrorKey, path}});
}

}  // namespace

struct KeyFileDefaults::Watch {
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    std::string path;
    std::function<void()> changed;
    std::vector<std::string> places;
    std::vector<GFileMonitor*> monitors;
    std::thread thread;
    std::promise<void> over;

    ~Watch() {
        if (thread.joinable()) {
            quit();
            thread.join();
        }
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    }

    void quit() {
        // The task is queued, not called, as the loop may not have begun yet.
        GSource* const source = g_idle_source_new();
        g_source_set_callback(
            source,
            [](gpointer quitLoop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(quitLoop));
                return G_SOURCE_REMOVE;
            },
            loop, nullptr);
        g_source_attach(source, context);
        g_source_unref(source);
    }

    static void onEvent(GFileMonitor*, GFile*, GFile*, GFileMonitorEvent event, gpointer self) {
        // A write in place counts when the writer closes the file, so that a half-written one is
        // not read.
        if (event != G_FILE_MONITOR_EVENT_CHANGED &&
            event != G_FILE_MONITOR_EVENT_ATTRIBUTE_CHANGED &&
            event != G_FILE_MONITOR_EVENT_CREATED)
            static_cast<Watch*>(self)->update();
    }

    void watchPlaces() {
        // The paths are looked up again after the watch began: a link may have been changed in
        // between.
        for (auto now = placesOf(path); now != places; now = placesOf(path)) {
            // The new watches begin before the old ones end, so that no path is unwatched in
            // between.
            const auto former = std::exchange(monitors, {});
            places = std::move(now);
            for (const auto& place : places)
                begin(place);
            end(former);
        }
    }

    void begin(const std::string& place) {
        // The settings are a local file, for which the modules of other file systems are not
        // loaded.
        GFile* const file = g_vfs_get_file_for_path(g_vfs_get_local(), place.c_str());
        if (GFileMonitor* const monitor =
                g_file_monitor_file(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, nullptr)) {
            g_signal_connect(monitor, "changed", G_CALLBACK(onEvent), this);
            monitors.push_back(monitor);
        }
        g_object_unref(file);
    }

    void end(const std::vector<GFileMonitor*>& ended) {
        for (GFileMonitor* const monitor : ended) {
            g_signal_handlers_disconnect_by_data(monitor, this);
            g_file_monitor_cancel(monitor);
            g_object_unref(monitor);
        }
    }

    void update() {
        watchPlaces();
        changed();  // This call comes last, as changes from before the watch began count as well.
    }

    void run() {
        g_main_context_push_thread_default(context);
        update();
        g_main_loop_run(loop);
        end(monitors);
        g_main_context_pop_thread_default(context);
        over.set_value();
    }
};

/// The watches that run. The standard defaults live as long as the process does; when it exits, GIO
/// is taken down, so that a thread which still uses it would crash.
class KeyFileDefaults::RunningWatches {
  public:
    static RunningWatches& instance() {
        static auto* const watches = new RunningWatches;
        return *watches;
    }

    void add(Watch& watch) {
        const std::lock_guard lock(mutex_);
        watches_.push_back(&watch);
    }

    void remove(const Watch& watch) {
        const std::lock_guard lock(mutex_);
        std::erase(watches_, &watch);
    }

  private:
    RunningWatches() {
        std::atexit([] { instance().endAll(); });
    }

    void endAll() {
        const std::lock_guard lock(mutex_);
        const auto deadline = std::chrono::steady_clock::now() + longestEnd;
        for (Watch* const watch : watches_)
            watch->quit();
        for (Watch* const watch : watches_) {
            if (watch->thread.get_id() == std::this_thread::get_id())
                continue;  // An observer called exit().
            if (watch->over.get_future().wait_until(deadline) == std::future_status::ready)
                watch->thread.join();
        }
        watches_.clear();
    }

    std::mutex mutex_;
    std::vector<Watch*> watches_;
};

KeyFileDefaults::KeyFileDefaults(std::string path) : path_(std::move(path)) {}

KeyFileDefaults::~KeyFileDefaults() {
    if (watch_)
        RunningWatches::instance().remove(*watch_);
}

DefaultsStore::Values KeyFileDefaults::load() {
    std::string text;
    if (readFile(path_, text) != 0)
        return {};
    return key_file::parse(text);
}

NSErrorRef KeyFileDefaults::save(std::string_view key, std::string_view value) {
    const auto target = placesOf(path_).back();
    const auto folder = std::filesystem::absolute(target).parent_path().string();
    if (g_mkdir_with_parents(folder.c_str(), 0700) != 0)
        return failure(errno, folder);
    const FolderLock lock(folder);
    std::string text;
    if (const int error = readFile(target, text); error != 0)
        return failure(error, target);
    return failure(replaceFile(target, key_file::withValue(text, key, value)), target);
}

void KeyFileDefaults::watch(std::function<void()> changed) {
    auto watch = std::make_unique<Watch>();
    watch->path = path_;
    watch->changed = std::move(changed);
    // This thread must not receive the host's signals.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        watch->thread = std::thread([started = watch.get()] { started->run(); });
        RunningWatches::instance().add(*watch);
        watch_ = std::move(watch);
    } catch (const std::system_error&) {
        // Without a thread, edits by hand take effect in the next process.
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::shared_ptr<DefaultsStore> systemDefaultsStore() {
    return std::make_shared<KeyFileDefaults>(std::string(g_get_user_config_dir()) +
                                             "/morvaneoperation/defaults.ini");
}

}  // namespace morvane
