// SPDX-License-Identifier: MIT
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "CommandTexts.h"

/// The build runs this program: it writes to standard output the text that it is asked for, made of
/// the table of commands.
int main(int argc, char** argv) {
    const std::string kind = argc > 1 ? argv[1] : "";
    if (kind == "bash") {
        std::cout << morvane::bashCompletion();
    } else if (kind == "zsh") {
        std::cout << morvane::zshCompletion();
    } else if (kind == "fish") {
        std::cout << morvane::fishCompletion();
    } else if (kind == "manual" && argc == 3) {
        std::ifstream file(argv[2]);
        if (!file) {
            std::cerr << argv[0] << ": " << argv[2] << " cannot be read\n";
            return 1;
        }
        std::cout << morvane::manualWithLists({std::istreambuf_iterator<char>(file), {}});
    } else {
        std::cerr << "usage: " << argv[0] << " bash|zsh|fish|manual FILE\n";
        return 2;
    }
    return std::cout.flush() ? 0 : 1;
}
