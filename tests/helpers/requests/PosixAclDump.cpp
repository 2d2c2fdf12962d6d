// SPDX-License-Identifier: MIT
#include <cstdio>
#include <iostream>
#include <string>
#include <string_view>

#include "AclRequests.h"
#include "EntryJson.h"

namespace {

using namespace morvane;

/// Prints the error, if there is one.
bool failed(const NSErrorRef& error, const std::string& path) {
    if (error)
        std::cerr << path << ": " << error->localizedDescription() << '\n';
    return static_cast<bool>(error);
}

}  // namespace

/// For each path on a line of standard input, its entries as JSON and a line of "--". With --copy,
/// the lines come in pairs: the entries of the first path are written to the second.
int main(int argc, char** argv) {
    const bool copies = argc > 1 && std::string_view(argv[1]) == "--copy";
    for (std::string path; std::getline(std::cin, path);) {
        const auto answer = aclEntriesOfUrl(NSURL::fileURLWithPath(path));
        if (!answer && failed(answer.error(), path))
            return 1;
        if (copies) {
            std::getline(std::cin, path);
            if (failed(setAclEntriesOfUrl(*answer, NSURL::fileURLWithPath(path)), path))
                return 1;
        } else {
            std::cout << entriesAsJson(*answer) << "--\n";
        }
    }
}
