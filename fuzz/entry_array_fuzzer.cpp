// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVAclEntry.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSException.h>
#include <MorvaneOperation/platform/xpc/Limits.h>
#include <MorvaneOperation/platform/xpc/NSXPCCoding.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/FakeMainLoop.h"
#include "platform/fake/FakeUserDatabase.h"

/// Reads whole arrays of entries as a listening service reads them from a client, edits what came,
/// and writes it again: what was written is read, and is the same.
///
/// The input is a recipe: an array to build, shared nodes and boxes included, and how to damage its
/// archive; or, if its first byte is odd, an archive as it stands. Then come the edits.
namespace {

using namespace morvane;
using Entries = std::vector<std::shared_ptr<MVAclEntry>>;
using Nodes = std::vector<std::shared_ptr<MVTreeNode>>;

void require(bool condition) {
    if (!condition)
        std::abort();
}

/// The bytes of the input, one after the other, then zeros.
class Recipe {
  public:
    explicit Recipe(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool ended() const { return bytes_.empty(); }
    std::uint8_t byte() {
        if (bytes_.empty())
            return 0;
        const auto first = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return first;
    }
    std::size_t below(std::size_t bound) { return byte() % bound; }
    template <class T, std::size_t N>
    const T& oneOf(const T (&values)[N]) {
        return values[below(N)];
    }
    NSData take(std::size_t size) {
        const auto taken = bytes_.first(std::min(size, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }

  private:
    std::span<const std::uint8_t> bytes_;
};

constexpr std::int32_t permissions[] = {2,     4,     8,     0x10,  0x20,   0x40,   0x80,
                                        0x100, 0x200, 0x400, 0x800, 0x1000, 0x2000, -1};
constexpr std::int64_t states[] = {MVStateOff, MVStateOn, MVStateMixed, 7};
constexpr std::int32_t tags[] = {1, 2, 0, -1, 0x7fffffff};

std::optional<std::string> nameFrom(Recipe& recipe) {
    static const std::optional<std::string> names[] = {
        "Read",      "List Folder Contents",    "This item", "", std::nullopt,
        "Ausführen", std::string("cut\0off", 7)};
    return recipe.oneOf(names);
}

class Builder {
  public:
    /// Something stands in two places.
    bool shares = false;

    Entries entries(Recipe& recipe) {
        if (recipe.below(4) == 0)
            return {MVAclEntry::newEntryForDirectory(recipe.below(2) != 0)};
        Entries made(recipe.below(5));
        for (auto& entry : made) {
            if (entries_.empty() || recipe.below(16) != 15) {
                entry = newEntry(recipe);
                entries_.push_back(entry);
            } else {
                entry = again(entries_, recipe);
            }
        }
        return made;
    }

  private:
    template <class T>
    std::shared_ptr<T> again(const std::vector<std::shared_ptr<T>>& made, Recipe& recipe) {
        shares = true;
        return made[recipe.below(made.size())];
    }

    std::shared_ptr<MVAclEntry> newEntry(Recipe& recipe) {
        std::optional<NSUUID> uuid;
        if (const auto kind = recipe.below(3); kind != 0)
            uuid = kind == 1 ? uuidOfPosixIdentity(CBPosixUser{1000}) : NSUUID({recipe.byte()});
        const auto tag = recipe.oneOf(tags);
        const bool inherited = recipe.below(2) != 0;
        Nodes groups(recipe.below(6));
        for (auto& group : groups) {
            if (groups_.empty() || recipe.below(16) != 15) {
                group = newNode(recipe, 2);
                groups_.push_back(group);
            } else {
                group = again(groups_, recipe);
            }
        }
        return MVAclEntry::initWithUuid(uuid, tag, std::move(groups), inherited);
    }

    std::shared_ptr<MVTreeNode> newNode(Recipe& recipe, int depth) {
        // Each child is an archive of its own: what only children share is not shared there.
        const bool isGroup = depth == 2;
        std::shared_ptr<MVAclPermission> box;
        const auto kind = recipe.below(16);
        if (kind == 15 && isGroup && !boxes_.empty()) {
            box = again(boxes_, recipe);
        } else if (kind != 14) {
            const auto name = nameFrom(recipe);
            const auto permission = recipe.oneOf(permissions);
            box = MVAclPermission::initWithName(name, permission, recipe.oneOf(states));
            if (isGroup)
                boxes_.push_back(box);
        }
        auto node = MVTreeNode::treeNodeWithRepresentedObject(box);
        for (auto children = depth == 0 ? 0 : recipe.below(8); children > 0; --children)
            node->mutableChildNodes().append(newNode(recipe, depth - 1));
        return node;
    }

    Entries entries_;
    Nodes groups_;
    std::vector<std::shared_ptr<MVAclPermission>> boxes_;
};

NSData encoded(const Entries& entries) {
    NSKeyedArchiver coder;
    NSXPCCoding<Entries>::encode(coder, entries, "0");
    return coder.finishEncoding();
}

/// As a listening service decodes a client's message.
Entries decoded(const NSData& archive) {
    NSDecodingBudget budget;
    budget.bytes = limits::clientMessageBytes;
    budget.objects = limits::clientMessageObjects;
    NSKeyedUnarchiver coder(archive, budget);
    return NSXPCCoding<Entries>::decode(coder, "0", {&NSArrayClass, &MVAclEntry::classObject()});
}

void edit(const Entries& entries, FakeMainLoop& loop, Recipe& recipe) {
    while (!recipe.ended() && !entries.empty()) {
        const auto& entry = entries[recipe.below(entries.size())];
        try {
            switch (recipe.below(8)) {
                case 0:
                    entry->setPermissionGroup(recipe.below(8));
                    break;
                case 1:
                    entry->setInherited(recipe.below(2) != 0);
                    break;
                case 2:
                    entry->setTag(recipe.oneOf(tags));
                    break;
                case 3:
                    entry->convertInheritedToFileEntry();
                    break;
                case 4:
                    entry->convertInheritedToDirectoryEntry();
                    break;
                case 5:
                    loop.turn();
                    break;
                default: {
                    const auto& groups = entry->permissions();
                    if (groups.empty())
                        break;
                    const NSTreeNode* node = groups[recipe.below(groups.size())].get();
                    while (!node->childNodes().empty() && recipe.below(4) != 0)
                        node = node->childNodes()[recipe.below(node->childNodes().size())].get();
                    MVTreeNode::setStateOf(*node, recipe.oneOf(states));
                }
            }
        } catch (const NSException&) {
            // A tree of another shape than the step asks for.
        }
    }
    // A refused group waits for the loop; one that is put back to a custom one waits again.
    for (int turns = 0; turns < 3; ++turns)
        loop.turn();
}

bool sameNode(const NSTreeNode& a, const NSTreeNode& b, bool withStates) {
    const auto* const one = MVTreeNode::permissionOf(a);
    const auto* const other = MVTreeNode::permissionOf(b);
    if (!one != !other || a.childNodes().size() != b.childNodes().size())
        return false;
    if (one && (!one->isEqual(other) || one->permission() != other->permission() ||
                (withStates && one->state() != other->state()))) {
        return false;
    }
    for (std::size_t i = 0; i < a.childNodes().size(); ++i) {
        if (!sameNode(*a.childNodes()[i], *b.childNodes()[i], withStates))
            return false;
    }
    return true;
}

bool same(const Entries& a, const Entries& b, bool withStates) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i]->tag() != b[i]->tag() || a[i]->uuid() != b[i]->uuid() ||
            a[i]->inherited() != b[i]->inherited() ||
            a[i]->permissions().size() != b[i]->permissions().size()) {
            return false;
        }
        for (std::size_t k = 0; k < a[i]->permissions().size(); ++k) {
            if (!sameNode(*a[i]->permissions()[k], *b[i]->permissions()[k], withStates))
                return false;
        }
    }
    return true;
}

/// Decoding keeps the boxes of the applicability consistent, so states may change once, not twice.
void requireThatItCrosses(const Entries& entries) {
    const auto once = decoded(encoded(entries));
    require(same(entries, once, false));
    require(same(once, decoded(encoded(once)), true));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FakeUserDatabaseInstallation users;
    const FakeMainLoopInstallation loop;
    Recipe recipe({data, size});
    NSData archive;
    bool damaged = true;
    Builder builder;
    if ((recipe.byte() & 1) != 0) {
        const std::size_t high = recipe.byte();
        archive = recipe.take(high << 8 | recipe.byte());
    } else {
        archive = encoded(builder.entries(recipe));
        auto changes = recipe.below(4);
        damaged = changes != 0;
        for (; changes > 0; --changes) {
            const std::size_t high = recipe.byte();
            const auto at = (high << 8 | recipe.byte()) % archive.size();
            archive[at] = static_cast<std::uint8_t>(archive[at] + recipe.byte());
        }
    }
    Entries entries;
    try {
        entries = decoded(archive);
    } catch (const NSArchiveFailure&) {
        require(damaged || builder.shares);
        return 0;
    }
    require(damaged || !builder.shares);
    edit(entries, *loop.operator->(), recipe);
    requireThatItCrosses(entries);
    return 0;
}
