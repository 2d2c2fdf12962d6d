// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "Harness.h"

/// The rows of the table. Each sets up what it needs, measures, and clears up behind it.
namespace bench {

using Lines = std::vector<Line>;

Lines roundTrip64(const Options& options);
Lines callback64(const Options& options);
Lines pipelined64(const Options& options);
Lines connectFirstReply(const Options& options);
Lines idleClients1000(const Options& options);
Lines items100k(const Options& options);
Lines reply64m(const Options& options);

Lines archiveEncodeEntry(const Options& options);
Lines archiveDecodeEntry(const Options& options);

Lines stateChange(const Options& options);
Lines observe1000(const Options& options);
Lines observe100000(const Options& options);
Lines newFolderEntry(const Options& options);
Lines decode1000Entries(const Options& options);
Lines encode1000Entries(const Options& options);
Lines convertEntry(const Options& options);

Lines sizeText(const Options& options);
Lines displayInfo(const Options& options);

Lines sizeTree(const Options& options);
Lines propagate100k(const Options& options);
Lines rename10k(const Options& options);
Lines shortBehindLong(const Options& options);
Lines commandLine(const Options& options);
Lines mainLoopBlocked(const Options& options);
Lines windowOpens(const Options& options);

/// These need the privileged helper and polkit.
Lines refusedRequest(const Options& options);
Lines privilegedList(const Options& options);
Lines authorizeHeld(const Options& options);

}  // namespace bench
