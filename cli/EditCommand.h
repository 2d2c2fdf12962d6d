// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/platform/foundation/NSError.h>
#include <MorvaneOperation/platform/foundation/NSURL.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AccessCommand.h"
#include "AclCommand.h"
#include "AclEditor.h"
#include "Outcome.h"

/// `morvane acl PATH --edit [SCRIPT]`: reads a list, edits it through its model, and writes it
/// back.
namespace morvane {

struct EditOptions {
    std::string path;
    /// The script; empty if the list is edited on the terminal.
    std::optional<std::string> script;
    /// Shows the list before and after, and writes nothing.
    bool dryRun = false;
    /// What the file system cannot hold is left out, and the nearest list that grants no more is
    /// written.
    bool lossy = false;
    bool tree = false;
    bool json = false;
};

/// Writes a list and waits for the answer.
using AclSink = std::function<NSErrorRef(const EntryList& entries, const NSURL& url)>;

/// Writes what was edited, `lossy` as in EditOptions; answers why the list was refused, so that the
/// person can go on editing.
using AclSave = std::function<Problem(bool lossy)>;

/// What the edit of a person is about.
struct EditSession {
    std::string title;
    AclSave save;
    /// What saving would change, line by line.
    std::function<std::vector<std::string>()> changes;
};

/// Lets a person edit until the result was saved; false if it was not. Empty where there is no
/// terminal.
using AclInteraction = std::function<bool(AclEditor& editor, const EditSession& session)>;

/// `access` asks a service that can look at more than this program; null if there is none.
Outcome runAclEdit(const EditOptions& options, const AclSource& source, const AclSink& sink,
                   const AccessSource& access, const AclInteraction& interaction,
                   const Style& style);

}  // namespace morvane
