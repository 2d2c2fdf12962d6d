// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "FileService.h"
#include "FileTree.h"
#include "Rows.h"

namespace bench {

using namespace morvane;

Lines sizeTree(const Options& options) {
    constexpr int files = 200000;
    const FileTree tree(files);
    FileService service;
    const std::string path = tree.path();
    return compare({.row = "size-tree",
                    .ours = {"", repeated([&] {
                                 if (service.sizeOf(path) != tree.bytes())
                                     throw std::runtime_error("the size of the tree is not right");
                             })},
                    .peers = {{"du", repeated([&] {
                                   runProgram({"du", "-s", "--apparent-size", path});
                               })}},
                    .required = Requirement::atMostTimes(0.7),
                    .limit = {},
                    .note = std::to_string(files) + " files"},
                   options);
}

Lines propagate100k(const Options& options) {
    constexpr int files = 100000;
    // Somebody else's rights each time, so that every item is written.
    const auto rights = [](const char* user, std::size_t turn) {
        const std::string entry = std::string("u:") + user + (turn % 2 == 0 ? ":rX" : ":rwX");
        return entry + ",d:" + entry;
    };
    const FileTree tree(files);
    FileService service;
    const std::string path = tree.path();
    return compare(
        {.row = "propagate-100k",
         .ours = {"",
                  [&, turn = std::size_t{0}](std::size_t count) mutable {
                      double time = 0;
                      for (std::size_t i = 0; i < count; ++i) {
                          runProgram({"setfacl", "-m", rights("3000003", turn++), path});
                          const auto entries = service.aclOf(path);
                          time += timed([&] { service.propagate(entries, path); });
                      }
                      return time;
                  }},
         .peers =
             {{"setfacl -R",
               [&, turn = std::size_t{0}](std::size_t count) mutable {
                   return timed([&] {
                       for (std::size_t i = 0; i < count; ++i)
                           runProgram({"setfacl", "-R", "-m", rights("3000004", turn++), path});
                   });
               }}},
         .required = Requirement::atMostTimes(0.7),
         .limit = {},
         .note = std::to_string(files) + " files"},
        options);
}

Lines shortBehindLong(const Options& options) {
    constexpr int files = 1000000;
    const FileTree tree(files);
    const std::string path = tree.path();
    FileService service;
    /// Sums, again and again, on the connection of the small requests.
    class Sums {
      public:
        Sums(FileService& service, const std::string& path)
            : thread_([&, path](const std::stop_token& stop) {
                  while (!stop.stop_requested())
                      service.sizeOf(path);
              }) {}

      private:
        std::jthread thread_;
    };
    const auto lists = repeated([&] { service.aclOf(path); });
    return compare({.row = "short-behind-long",
                    .ours = {"",
                             [&](std::size_t count) {
                                 const Sums sums(service, path);
                                 return lists(count);
                             }},
                    .peers = {{"with nothing else", lists}},
                    .required = Requirement::atMostTimes(1.5),
                    .limit = {},
                    .note = "sums of " + std::to_string(files) + " files"},
                   options);
}

Lines commandLine(const Options& options) {
    const morvane::TemporaryFolder folder;
    const std::string path = folder.path() / "a-file";
    makeFile(path);
    setenv("MORVANE_LIBEXEC_DIR", MORVANE_LIBEXEC, 1);
    return compare({.row = "command-acl",
                    .ours = {"", repeated([&] {
                                 runProgram({MORVANE_COMMAND, "acl", path});
                             })},
                    .peers = {{"getfacl", repeated([&] {
                                   runProgram({"getfacl", "-p", path});
                               })}},
                    .required = Requirement::atMostTimes(4),
                    .limit = {},
                    .note = {}},
                   options);
}

Lines rename10k(const Options& options) {
    constexpr std::size_t files = 10000;
    /// Files whose names change from one kind to the other and back.
    struct Folder {
        explicit Folder() {
            for (auto* kind : {&names[0], &names[1]}) {
                for (std::size_t i = 0; i < files; ++i)
                    kind->push_back((kind == &names[0] ? "before-" : "after-") + std::to_string(i));
            }
            for (const auto& name : names[0])
                makeFile(folder.path() / name);
        }
        const std::vector<std::string>& now() const { return names[turn % 2]; }
        const std::vector<std::string>& next() const { return names[(turn + 1) % 2]; }
        morvane::TemporaryFolder folder;
        std::vector<std::string> names[2];
        std::size_t turn = 0;
    };
    Folder ours;
    Folder plain;
    FileService service;
    return compare(
        {.row = "rename-10k",
         .ours = {"",
                  [&](std::size_t count) {
                      double time = 0;
                      for (std::size_t i = 0; i < count; ++i, ++ours.turn) {
                          std::vector<NSURL> urls;
                          for (const auto& name : ours.now())
                              urls.push_back(
                                  NSURL::fileURLWithPath((ours.folder.path() / name).native()));
                          time += timed([&] { service.rename(urls, ours.next()); });
                      }
                      return time;
                  }},
         .peers = {{"loop of rename()",
                    [&](std::size_t count) {
                        return timed([&] {
                            for (std::size_t i = 0; i < count; ++i, ++plain.turn) {
                                for (std::size_t file = 0; file < files; ++file) {
                                    const auto from = plain.folder.path() / plain.now()[file];
                                    const auto to = plain.folder.path() / plain.next()[file];
                                    if (std::rename(from.c_str(), to.c_str()) != 0)
                                        throw std::runtime_error("a file cannot be renamed");
                                }
                            }
                        });
                    }}},
         .required = {},
         .limit = {},
         .note = std::to_string(files) + " files"},
        options);
}

}  // namespace bench
