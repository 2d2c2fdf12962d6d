// SPDX-License-Identifier: MIT
#pragma once

#if defined(__cplusplus) && __cplusplus < 202002L
#error "MorvaneOperation needs C++20: compile with -std=c++20 or later."
#include <nothing>  // a file that is not there ends the compiler, before all errors that follow
#endif

/// Marks what the shared library exports; everything else stays inside it.
#define MORVANE_EXPORT __attribute__((visibility("default")))
/// Keeps a class inside that is named in a public header, but is not part of the library's face.
#define MORVANE_INTERNAL __attribute__((visibility("hidden")))
