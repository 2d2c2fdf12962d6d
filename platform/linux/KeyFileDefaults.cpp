#include <MorvaneOperation/platform/linux/KeyFileDefaults.h>
#include <MorvaneOperation/platform/linux/KeyFileText.h>
#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <thread>
#include <utility>

namespace morvane {
namespace {

/// Settings are a few lines; what is larger is not ours.
constexpr std::size_t largestFile = 1 << 20;

class File {
  public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

/// 0 or the error number. A file that does not exist reads as empty.
int readFile(const std::string& path, std::string& text) {
    const File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0)
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

/// 0 or the error number. Readers see the former file or the new one, also after a crash.
int replaceFile(const std::string& path, std::string_view text) {
    struct stat former;
    const bool existed = ::stat(path.c_str(), &former) == 0;
    std::string temporary = path + ".XXXXXX";
    const File file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (file.get() < 0)
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

NSErrorRef failure(int error, const std::string& path) {
    return error == 0
               ? nullptr
               : NSError::errorWithDomain(NSPOSIXErrorDomain, error, {{NSFilePathErrorKey, path}});
}

}  // namespace

struct KeyFileDefaults::Watch {
    GMainContext* context = g_main_context_new();
    GMainLoop* loop = g_main_loop_new(context, FALSE);
    std::function<void()> changed;
    std::thread thread;

    ~Watch() {
        // Queued, not called: the loop may not have begun yet.
        GSource* const quit = g_idle_source_new();
        g_source_set_callback(
            quit,
            [](gpointer quitLoop) -> gboolean {
                g_main_loop_quit(static_cast<GMainLoop*>(quitLoop));
                return G_SOURCE_REMOVE;
            },
            loop, nullptr);
        g_source_attach(quit, context);
        g_source_unref(quit);
        thread.join();
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    }

    static void onEvent(GFileMonitor*, GFile*, GFile*, GFileMonitorEvent event, gpointer self) {
        // A write in place counts when it is done, so that a half-written file is not read.
        if (event != G_FILE_MONITOR_EVENT_CHANGED &&
            event != G_FILE_MONITOR_EVENT_ATTRIBUTE_CHANGED &&
            event != G_FILE_MONITOR_EVENT_CREATED)
            static_cast<Watch*>(self)->changed();
    }

    void run(const std::string& path) {
        g_main_context_push_thread_default(context);
        GFile* const file = g_file_new_for_path(path.c_str());
        GFileMonitor* const monitor =
            g_file_monitor_file(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, nullptr);
        if (monitor)
            g_signal_connect(monitor, "changed", G_CALLBACK(onEvent), this);
        changed();  // what happened between the last load and the beginning of the watch
        g_main_loop_run(loop);
        if (monitor) {
            g_file_monitor_cancel(monitor);
            g_object_unref(monitor);
        }
        g_object_unref(file);
        g_main_context_pop_thread_default(context);
    }
};

KeyFileDefaults::KeyFileDefaults(std::string path) : path_(std::move(path)) {}

KeyFileDefaults::~KeyFileDefaults() = default;

DefaultsStore::Values KeyFileDefaults::load() {
    std::string text;
    if (readFile(path_, text) != 0)
        return {};
    return key_file::parse(text);
}

NSErrorRef KeyFileDefaults::save(std::string_view key, std::string_view value) {
    std::string text;
    if (const int error = readFile(path_, text); error != 0)
        return failure(error, path_);
    // A person may keep the file elsewhere and link to it.
    std::string target = path_;
    if (char* const resolved = ::realpath(path_.c_str(), nullptr)) {
        target = resolved;
        std::free(resolved);
    } else {
        const auto slash = path_.rfind('/');
        if (slash != std::string::npos &&
            g_mkdir_with_parents(path_.substr(0, slash).c_str(), 0700) != 0)
            return failure(errno, path_);
    }
    return failure(replaceFile(target, key_file::withValue(text, key, value)), target);
}

void KeyFileDefaults::watch(std::function<void()> changed) {
    watch_ = std::make_unique<Watch>();
    watch_->changed = std::move(changed);
    // The host's signals are not for this thread.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    watch_->thread = std::thread([watch = watch_.get(), path = path_] { watch->run(path); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

std::shared_ptr<DefaultsStore> systemDefaultsStore() {
    return std::make_shared<KeyFileDefaults>(std::string(g_get_user_config_dir()) +
                                             "/morvaneoperation/defaults.ini");
}

}  // namespace morvane
