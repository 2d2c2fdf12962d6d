// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Harness.h"

/// The lines as a table for people, and as JSON for programs.
namespace bench {

std::string tableOf(const std::vector<Line>& lines);
/// An array of objects; times in nanoseconds.
std::string jsonOf(const std::vector<Line>& lines);

}  // namespace bench
