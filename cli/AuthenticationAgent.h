// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

/// The system's textual authentication agent, for this process and as long as this object lives: it
/// asks on the terminal when the login session has no agent of its own, or there is no session.
namespace morvane {

class AuthenticationAgent {
  public:
    /// Starts the agent and waits until it is ready. Where no such program is installed, nothing is
    /// started.
    AuthenticationAgent();
    ~AuthenticationAgent();
    AuthenticationAgent(const AuthenticationAgent&) = delete;
    AuthenticationAgent& operator=(const AuthenticationAgent&) = delete;

  private:
    pid_t child_ = -1;
};

}  // namespace morvane
