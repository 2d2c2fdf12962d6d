// SPDX-License-Identifier: MIT
#pragma once

/// Where a password can be asked for, after `su -c` too.
///
/// `su -c` starts its command in a session without a terminal, although its input and output are
/// one: the one of the session that `su` was called in. Whoever asks for a password opens the
/// terminal of its own session, and finds none.
namespace morvane {

/// If this program is so placed, gives it a terminal of its own within that one, as `su --pty`
/// does: it goes on in a child process, whose session has the new terminal, while this process
/// hands on what is typed and shown, and ends with the child's status (128 and the signal's number
/// if one has ended it). To be called before there is a second thread.
///
/// Nothing happens where there is a terminal to ask on, where one of the standard streams is none,
/// where the program runs in that terminal's background (a shell reads what is typed there), or
/// where the system has no terminals left.
void moveToOwnTerminal();

}  // namespace morvane
