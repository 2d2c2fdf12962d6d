// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <string>

/// Writes the files from which the system's policy service reads its actions.
namespace morvane {

/// Returns the text of a file with one action: the right, its prompt, and the rule in polkit's
/// terms.
std::string policyFileText(const std::string& right, const AuthorizationRule& rule,
                           const std::string& prompt);

/// Returns the text of the file with the action that every right implies.
std::string impliedPolicyFileText();

/// Adds the action to the system's and returns 0 or an errno value. The file is written completely
/// or not at all; it is a copy of the package's own file if that defines the right, and otherwise
/// contains the text.
int writePolicyFile(const std::string& right, const std::string& text);

}  // namespace morvane
