// SPDX-License-Identifier: MIT
// What nearly every test reads, compiled once.
