#include <cstdio>
#include <iostream>
#include <string>

#include "EntryText.h"
#include "PosixAclEntries.h"
#include "PosixAclReader.h"

/// For each path on a line of standard input, its entries as JSON and a line of "--".
int main() {
    using namespace morvane;
    for (std::string path; std::getline(std::cin, path);) {
        const auto read = readPosixAcl(path);
        const auto* acl = std::get_if<PosixAcl>(&read);
        if (!acl) {
            std::cerr << path << ": " << std::get<AclReadFailure>(read).code << '\n';
            return 1;
        }
        std::cout << entriesAsJson(entriesOfPosixAcl(*acl)) << "--\n";
    }
}
