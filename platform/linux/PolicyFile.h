// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/security/AuthorizationServices.h>

#include <string>

/// The files in which the system's policy service keeps its actions.
namespace morvane {

/// The text of a file with one action: the right, its prompt, and the rule in polkit's terms.
std::string policyFileText(const std::string& right, const AuthorizationRule& rule,
                           const std::string& prompt);

/// The text of the file with the action that every right implies.
std::string impliedPolicyFileText();

/// Adds the action to the system's: 0, or an errno value. The file is there whole or not at all; it
/// is the package's own, if that defines the right, and otherwise has the text.
int writePolicyFile(const std::string& right, const std::string& text);

}  // namespace morvane
