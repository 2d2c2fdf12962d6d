// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// What this program itself can see of an item, with the rights of its user and without a service.
namespace morvane {

struct FileFacts {
    /// Kind and rights, in the encoding of stat(2).
    std::uint32_t mode = 0;
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    /// In bytes.
    std::int64_t size = 0;
    /// When its content was last changed, in seconds since 1970.
    std::int64_t modified = 0;
    /// What a symbolic link points to; empty for anything else.
    std::string target = {};
    /// Whether it has a list beside the rights of the mode.
    bool hasList = false;
    /// The number of its mount; 0 if the system does not tell.
    std::uint64_t mount = 0;

    bool isFolder() const;
    /// What it adds to the size of its folder: only regular files have one, in bytes.
    std::int64_t ownSize() const;
    /// "file", "folder", "link", "fifo", "socket", "character device" or "block device".
    const char* kind() const;
    static constexpr std::size_t flags = 3;
    /// Setuid, setgid and the sticky bit as getfacl writes them, "s-t"; empty if it has none.
    std::string flagsText() const;
    /// "drwxr-x--x", with a "+" behind it if there is a list.
    std::string modeText() const;
};

/// The facts of an item, a link's own; empty if this program cannot see it.
using FactsSource = std::function<std::optional<FileFacts>(const std::string& path)>;
std::optional<FileFacts> factsOfFile(const std::string& path);
/// Returns the same without `hasList` and `target`, which cost a system call each.
std::optional<FileFacts> glimpseOfFile(const std::string& path);

/// The facts of an item that was named: those of the folder that a link leads to.
std::optional<FileFacts> factsOfNamed(const std::string& path, const FactsSource& facts);

/// What tells the item at `path` from any other that takes its place there: its inode, and when it
/// was made, as the device may have another number after each start. Where the file system does not
/// know that time, the device does instead. Empty for a link, and for what this program cannot see.
std::string identityOfFile(const std::string& path);

/// A user's or a group's name, which is looked up once in a run; empty if it has none.
std::optional<std::string> nameOfOwner(std::uint32_t id, bool isGroup);

}  // namespace morvane
