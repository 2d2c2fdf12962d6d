// SPDX-License-Identifier: MIT
#pragma once

/// A terminal on which a password can be asked for, even after `su -c`.
///
/// `su -c` starts its command in a new session, which has no terminal, although the input and
/// output of the command are the terminal of the session that `su` was called in. A program that
/// asks for a password opens the terminal of its own session, and finds none.
namespace morvane {

/// If this program was started so, gives it a terminal of its own, as `su --pty` does: it goes on
/// in a child process, whose session has the new terminal, while this process passes on what is
/// typed and shown, and ends with the status of the child (128 and the number of the signal if one
/// has ended it). It must be called before there is a second thread.
///
/// Does nothing where there is a terminal to ask on, where one of the standard streams is not a
/// terminal, where the program runs in the background (a shell reads what is typed then), or where
/// the system has no terminals left.
void moveToOwnTerminal();

}  // namespace morvane
