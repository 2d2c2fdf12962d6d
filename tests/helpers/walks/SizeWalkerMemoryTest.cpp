// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "SizeWalker.h"
#include "TemporaryFolder.h"

namespace {

std::atomic<std::size_t> bytesNow = 0;
std::atomic<std::size_t> bytesMost = 0;

void* counted(void* memory) {
    if (!memory)
        throw std::bad_alloc();
    const auto now = bytesNow += ::malloc_usable_size(memory);
    auto most = bytesMost.load();
    while (now > most && !bytesMost.compare_exchange_weak(most, now)) {
    }
    return memory;
}

void freed(void* memory) {
    bytesNow -= ::malloc_usable_size(memory);
    std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) {
    return counted(std::malloc(size));
}
void operator delete(void* memory) noexcept {
    freed(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    freed(memory);
}

namespace morvane {
namespace {

namespace fs = std::filesystem;

class SizeWalkerMemoryTest : public testing::Test {
  protected:
    /// Opens or makes a folder in another, and closes that.
    static int enter(int outer, const std::string& name) {
        ::mkdirat(outer, name.c_str(), 0755);
        const int inner = ::openat(outer, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(outer);
        return inner;
    }
    void fill(const std::string& name, int folders, int files) const {
        for (int i = 0; i < folders; ++i) {
            const int inner =
                enter(enter(enter(AT_FDCWD, folder / name), "outer"), "inner-" + std::to_string(i));
            for (int k = 0; k < files; ++k)
                ::mknodat(inner, ("file-" + std::to_string(k)).c_str(), S_IFREG | 0600, 0);
            ::close(inner);
        }
    }

    /// One of each thread.
    static constexpr std::size_t buffers = 2 * 32768;

    struct Use {
        std::uint64_t items;
        std::size_t bytes;
    };
    /// The most that a walk has held at once.
    Use walk(const std::string& name) const {
        const std::size_t before = bytesNow;
        bytesMost = before;
        SizeWalker walker({folder / name});
        walker.run();
        return {walker.items(), bytesMost - before};
    }

    const TemporaryFolder temporary;
    const fs::path& folder = temporary.path();
};

TEST_F(SizeWalkerMemoryTest, DoesNotGrowWithTheNumberOfFilesAndFolders) {
    fill("many", 200, 100);
    const auto use = walk("many");
    EXPECT_EQ(use.items, 20202U);
    // Besides the buffers the names of the folders that were just read: half a byte for an item.
    EXPECT_LE(use.bytes, buffers + 200 * 50U);
}

TEST_F(SizeWalkerMemoryTest, AHardLinkedFileTakesALittle) {
    constexpr int files = 2000;
    fill("linked", 1, files);
    const auto inner = folder / "linked/outer/inner-0";
    fs::create_directory(folder / "linked/again");
    for (int k = 0; k < files; ++k) {
        const auto file = "file-" + std::to_string(k);
        fs::create_hard_link(inner / file, folder / "linked/again" / file);
    }
    const auto use = walk("linked");
    EXPECT_EQ(use.items, 2 * files + 4U);
    EXPECT_LE(use.bytes, buffers + files * 100U);
}

TEST_F(SizeWalkerMemoryTest, AHardLinkedFileTakesALittleForEachOfTheFewFoldersThatCountItAtOnce) {
    constexpr int files = 2000;
    constexpr int depth = 50;
    static_assert(depth > 2 * SizeWalker::mostWithin);
    std::vector<std::string> paths{folder / "deep"};
    for (int i = 0; i < depth; ++i)
        paths.push_back(paths.back() + "/deep");
    fs::create_directories(paths.back());
    for (int k = 0; k < files; ++k) {
        const auto file = paths.back() + "/" + std::to_string(k);
        ::mknod(file.c_str(), S_IFREG | 0600, 0);
        fs::create_hard_link(file, file + "-again");
    }
    const std::size_t before = bytesNow;
    bytesMost = before;
    SizeWalker walker(paths);
    walker.run();
    EXPECT_LE(bytesMost - before,
              buffers + files * (SizeWalker::mostWithin + 1) * 50U + depth * 600U);
}

}  // namespace
}  // namespace morvane
