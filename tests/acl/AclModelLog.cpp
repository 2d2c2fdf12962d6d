// SPDX-License-Identifier: MIT
// Edits random entries and writes every command with the state that followed it, for
// acl_model.py to check against rules written down a second time.
//
// One line each: COMMAND ARGS | STATE, where STATE is code, inherited, shallow, score, guard,
// initialized, waiting tasks, states and settable marks of all nodes, applicability text and, after
// commands that may rename boxes, their names.

#include <cstdio>
#include <cstdlib>
#include <random>

#include "acl/AclTestSupport.h"

using namespace morvane;
using namespace morvane::acltest;

namespace {

void print(const MVAclEntry& entry, const FakeMainLoopInstallation& loop, bool withNames) {
    std::string boxes;
    std::string names;
    const auto put = [&](const NSTreeNode& n, bool group) {
        const auto& p = *MVTreeNode::permissionOf(n);
        if (group && !boxes.empty())
            boxes += '/';
        boxes += p.state() == -1 ? '-' : static_cast<char>('0' + p.state());
        boxes += p.settable() ? 's' : '.';
        if (withNames)
            names += (names.empty() ? "" : ";") + p.name() + "=" + std::to_string(p.permission());
    };
    for (const auto& group : entry.permissions()) {
        put(*group, true);
        for (const auto& child : group->childNodes())
            put(*child, false);
    }
    std::printf("|%lld|%d|%d|%lld|%d|%d|%zu|%s|%s|%s\n",
                static_cast<long long>(entry.permissionGroup()), entry.inherited(),
                entry.isShallow(), static_cast<long long>(entry.canonicalScore()),
                entry.updatingPermissions(), entry.applicableToInitialized(), loop->waiting(),
                boxes.c_str(), entry.applicableTo().c_str(), names.c_str());
}

/// A flat entry with four groups has no boxes to convert.
bool convertible(const MVAclEntry& entry) {
    return entry.permissions().size() < 4 || !entry.permissions()[3]->childNodes().empty();
}

}  // namespace

int main(int argc, char** argv) {
    const long steps = argc > 1 ? std::atol(argv[1]) : 250000;
    std::mt19937 random(argc > 2 ? static_cast<unsigned>(std::atol(argv[2])) : 1u);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const World world;
    std::shared_ptr<MVAclEntry> entry;
    for (long step = 0; step < steps; ++step) {
        const auto what = entry ? below(40) : 0;
        bool withNames = false;
        if (what == 0) {
            const auto kind = below(4);
            withNames = true;
            MVAclEntry::Permissions tree;
            if (kind < 2) {
                entry = MVAclEntry::newEntryForDirectory(kind == 1);
                std::printf("N %zu", kind);
            } else if (kind == 2) {
                std::string text;
                const auto count = below(5);
                for (std::size_t i = 0; i < count; ++i) {
                    const auto state = static_cast<std::int64_t>(below(3)) - 1;
                    tree.push_back(node("Group", 2, state));
                    text += " " + std::to_string(state);
                }
                const auto tag = static_cast<std::int32_t>(below(3));
                entry = MVAclEntry::initWithUuid(std::nullopt, tag, tree, below(2) != 0);
                std::printf("L %d %d%s", tag, entry->inherited(), text.c_str());
            } else {
                const auto like = MVAclEntry::newEntryForDirectory(true);
                tree = like->permissions();
                like->setPermissions({});
                std::string text;
                const auto shake = [&](const NSTreeNode& n) {
                    const auto state = static_cast<std::int64_t>(below(3)) - 1;
                    MVTreeNode::setStateOf(n, state);
                    text += " " + std::to_string(state);
                };
                for (const auto& group : tree) {
                    shake(*group);
                    for (const auto& child : group->childNodes())
                        shake(*child);
                }
                const auto tag = static_cast<std::int32_t>(below(3));
                const bool inherited = below(2) != 0;
                entry = MVAclEntry::initWithUuid(std::nullopt, tag, tree, inherited);
                std::printf("R %d %d%s", tag, inherited, text.c_str());
            }
        } else if (what < 22) {
            if (entry->permissions().empty()) {
                std::printf("-");
            } else {
                // Every third edit goes to the last group, where the rules are.
                const auto group = below(3) == 0 ? entry->permissions().size() - 1
                                                 : below(entry->permissions().size());
                const auto count = entry->permissions()[group]->childNodes().size();
                const auto state = static_cast<std::int64_t>(below(3)) - 1;
                if (count == 0 || below(5) == 0) {
                    std::printf("G %zu %d", group, static_cast<int>(state));
                    box(*entry, group).setState(state);
                } else {
                    const auto child = below(count);
                    std::printf("T %zu %zu %d", group, child, static_cast<int>(state));
                    box(*entry, group, child).setState(state);
                }
            }
        } else if (what < 28) {
            // Hosts offer no code but the shown one for an entry without three groups.
            const auto code = entry->permissions().size() < 3 ? std::int64_t{MVAclGroupCustom}
                                                              : static_cast<std::int64_t>(below(9));
            std::printf("P %d", static_cast<int>(code));
            entry->setPermissionGroup(code);
        } else if (what < 32) {
            const bool inherited = below(2) != 0;
            std::printf("I %d", inherited);
            entry->setInherited(inherited);
        } else if (what < 33) {
            withNames = true;
            std::printf("F %d", convertible(*entry) && entry->convertInheritedToFileEntry());
        } else if (what < 35) {
            withNames = true;
            std::printf("D %d", convertible(*entry) && entry->convertInheritedToDirectoryEntry());
        } else {
            std::printf("M");
            world.loop->turn();
        }
        print(*entry, world.loop, withNames);
    }
    return 0;
}
