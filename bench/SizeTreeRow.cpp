#include <MorvaneOperation/MVFileRequest.h>
#include <MorvaneOperation/MVFileResponse.h>
#include <MorvaneOperation/platform/xpc/NSXPCConnection.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "Rows.h"

namespace bench {
namespace {

using namespace morvane;
using Sizes = std::vector<std::shared_ptr<MVFileSizeItem>>;

constexpr int files = 200000;

/// Folders of folders of files, gone with this.
class Tree {
  public:
    Tree() {
        constexpr int filesInFolder = 100;
        constexpr int foldersInFolder = 50;
        std::string name = std::filesystem::temp_directory_path() / "morvane-tree-XXXXXX";
        if (!mkdtemp(name.data()))
            throw std::system_error(errno, std::generic_category(), name);
        path_ = name;
        std::filesystem::path folder;
        for (int i = 0; i < files; ++i) {
            const int folderIndex = i / filesInFolder;
            if (i % filesInFolder == 0) {
                folder = path_ / ("folder-" + std::to_string(folderIndex / foldersInFolder)) /
                         ("sub-folder-" + std::to_string(folderIndex % foldersInFolder));
                std::filesystem::create_directories(folder);
            }
            const auto file = folder / ("a-file-" + std::to_string(i) + ".txt");
            const int descriptor = open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
            const off_t size = i * 37 % 100003;
            if (descriptor < 0 || ftruncate(descriptor, size) != 0)
                throw std::system_error(errno, std::generic_category(), file);
            close(descriptor);
            bytes_ += size;
        }
    }
    ~Tree() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::int64_t bytes() const { return bytes_; }

  private:
    std::filesystem::path path_;
    std::int64_t bytes_ = 0;
};

/// The host's end: lets the work go on.
class Response final : public MVFileResponse {
  public:
    void progressWithReply(NSXPCReply<bool> reply) override { reply(true); }
    void updateFileSizes(Sizes, NSXPCReply<bool> reply) override { reply(true); }
};

/// The file service itself, which is started with this.
class SizeService {
  public:
    SizeService() {
        setenv("MORVANE_LIBEXEC_DIR", MORVANE_LIBEXEC, 1);
        connection_ = NSXPCConnection::initWithServiceName(MVFileServiceName);
        auto requests = NSXPCInterface::interfaceWithProtocol<MVFileRequest>();
        requests->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()},
                             "getSizesWithUrls:reply:", 0, true);
        auto responses = NSXPCInterface::interfaceWithProtocol<MVFileResponse>();
        responses->setClasses({&NSArrayClass, &MVFileSizeItem::classObject()},
                              "updateFileSizes:reply:", 0, false);
        connection_->setRemoteObjectInterface(requests);
        connection_->setExportedInterface(responses);
        connection_->setExportedObject<MVFileResponse>(std::make_shared<Response>());
        connection_->resume();
    }
    ~SizeService() { connection_->invalidate(); }
    SizeService(const SizeService&) = delete;
    SizeService& operator=(const SizeService&) = delete;

    std::int64_t sizeOf(const std::filesystem::path& path) {
        std::promise<std::int64_t> size;
        const auto fail = [&](const NSErrorRef& error) {
            size.set_exception(
                std::make_exception_ptr(std::runtime_error(error->localizedDescription())));
        };
        connection_->remoteObjectProxyWithErrorHandler<MVFileRequest>(fail)->getSizesWithUrls(
            {NSURL::fileURLWithPath(path.native())}, [&](const Sizes& sizes, NSErrorRef error) {
                error ? fail(error) : size.set_value(sizes.at(0)->size());
            });
        return size.get_future().get();
    }

  private:
    std::shared_ptr<NSXPCConnection> connection_;
};

void runDu(const std::filesystem::path& path) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    const char* const arguments[] = {"du", "-s", "--apparent-size", path.c_str(), nullptr};
    pid_t process = -1;
    errno = posix_spawnp(&process, arguments[0], &actions, nullptr,
                         const_cast<char* const*>(arguments), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0)
        throw std::system_error(errno, std::generic_category(), arguments[0]);
    int status = 0;
    if (waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error("du has failed");
}

}  // namespace

Lines sizeTree(const Options& options) {
    const Tree tree;
    SizeService service;
    return compare({.row = "size-tree",
                    .ours = {"", repeated([&] {
                                 if (service.sizeOf(tree.path()) != tree.bytes())
                                     throw std::runtime_error("the size of the tree is not right");
                             })},
                    .peers = {{"du", repeated([&] { runDu(tree.path()); })}},
                    .required = Requirement::atMostTimes(0.7),
                    .limit = {},
                    .note = std::to_string(files) + " files"},
                   options);
}

}  // namespace bench
