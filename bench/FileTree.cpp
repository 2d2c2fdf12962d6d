// SPDX-License-Identifier: MIT
#include "FileTree.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace bench {

FileTree::FileTree(int files) {
    constexpr int filesInFolder = 100;
    constexpr int foldersInFolder = 50;
    std::filesystem::path folder;
    for (int i = 0; i < files; ++i) {
        const int folderIndex = i / filesInFolder;
        if (i % filesInFolder == 0) {
            folder = path() / ("folder-" + std::to_string(folderIndex / foldersInFolder)) /
                     ("sub-folder-" + std::to_string(folderIndex % foldersInFolder));
            std::filesystem::create_directories(folder);
        }
        const std::int64_t size = i * std::int64_t{37} % 100003;
        makeFile(folder / ("a-file-" + std::to_string(i) + ".txt"), size);
        bytes_ += size;
    }
}

void makeFile(const std::filesystem::path& path, std::int64_t size) {
    const int descriptor = open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    if (descriptor < 0 || ftruncate(descriptor, size) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    close(descriptor);
}

void runProgram(const std::vector<std::string>& arguments) {
    std::vector<char*> texts;
    for (const auto& argument : arguments)
        texts.push_back(const_cast<char*>(argument.c_str()));
    texts.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    errno = posix_spawnp(&process, texts[0], &actions, nullptr, texts.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0)
        throw std::system_error(errno, std::generic_category(), arguments[0]);
    int status = 0;
    if (waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error(arguments[0] + " has failed");
}

}  // namespace bench
