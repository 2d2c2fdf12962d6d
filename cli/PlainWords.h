// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Words that the parser of the command line is to take as they are. It would read brackets as a
/// list, and give words behind "--" to no option; so such words get a mark in front until they are
/// parsed.
namespace morvane {

/// The words of the command line in reverse order, as the parser takes them.
std::vector<std::string> wordsForParser(int argc, const char* const* argv);

/// Returns a parsed word without its mark.
std::string unmarked(std::string word);

/// Returns a text of the parser's without the marks of the words in it.
std::string withoutMarks(std::string text);

}  // namespace morvane
