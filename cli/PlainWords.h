// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

/// Words that the parser of the command line is to take as they are. It would take brackets for a
/// list, and what stands behind "--" for nobody's; so a mark stands before such words until they
/// are parsed.
namespace morvane {

/// The words of the command line for the parser, which takes them from the back.
std::vector<std::string> wordsForParser(int argc, const char* const* argv);

/// A word that was parsed, without its mark.
std::string unmarked(std::string word);

/// What the parser says of words, without their marks.
std::string withoutMarks(std::string text);

}  // namespace morvane
