// SPDX-License-Identifier: MIT
#include <MorvaneOperation/EntryTexts.h>
#include <MorvaneOperation/MVAclEditor.h>
#include <MorvaneOperation/platform/identity/CBIdentityAuthority.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <sstream>

#include "ClientTestSupport.h"

/// Random lists, edited at random and saved by the real service, are what a simple model says and
/// getfacl prints.
namespace morvane {
namespace {

/// What is expected of an entry: the letters that its boxes ask for.
struct Expected {
    bool reads = false;
    bool writes = false;
    bool executes = false;
    /// All of "Read" is on, which executes where somebody can execute the item.
    bool isWhole = false;
    /// The box for execution was switched on by itself.
    bool isChosen = false;

    bool asksToExecute() const { return executes && (!isWhole || isChosen); }
    void setRead(bool on) {
        reads = executes = isWhole = on;
        isChosen &= on;
    }
    void setExecution(bool on) {
        executes = isChosen = on;
        isWhole = reads && on;
    }
};

using Entry = std::shared_ptr<MVAclEntry>;
/// With whom each is for.
using ExpectedEntries = std::map<Entry, std::pair<std::string, Expected>>;
/// By "user:5001", and the three of the base by "user:".
using Letters = std::map<std::string, std::string>;

std::string lettersOf(bool reads, bool writes, bool executes) {
    return {reads ? 'r' : '-', writes ? 'w' : '-', executes ? 'x' : '-'};
}

/// The lists of everything in the folder, as getfacl prints them.
std::map<std::string, Letters> printedLists(const std::filesystem::path& folder) {
    std::map<std::string, Letters> lists;
    const auto command = "cd '" + folder.string() + "' && getfacl -np -- *";
    FILE* const output = popen(command.c_str(), "r");
    std::array<char, 256> line{};
    std::string item;
    while (output && fgets(line.data(), line.size(), output)) {
        std::string text(line.data());
        text.erase(text.find_last_not_of('\n') + 1);
        if (text.starts_with("# file: "))
            item = text.substr(8);
        else if (!text.empty() && text.front() != '#' && !text.starts_with("mask"))
            lists[item][text.substr(0, text.rfind(':'))] = text.substr(text.rfind(':') + 1);
    }
    EXPECT_EQ(output ? pclose(output) : -1, 0);
    return lists;
}

class RandomEdits : public ClientTest {
  protected:
    static constexpr int items = 150;
    static constexpr int mostEdits = 6;

    int upTo(int most) { return std::uniform_int_distribution<int>(0, most)(random_); }
    bool isSo() { return upTo(1) == 1; }
    std::string someLetters(bool mayExecute) {
        return lettersOf(isSo(), isSo(), isSo() && mayExecute);
    }
    /// One that every system has: "user:1" or "group:3".
    std::string somebody() { return (isSo() ? "user:" : "group:") + std::to_string(1 + upTo(2)); }
    static CBIdentityRef identityOf(const std::string& key) {
        const auto id = static_cast<std::uint32_t>(std::stoul(key.substr(key.find(':') + 1)));
        return CBIdentity::identityWithUniqueIdentifier(
            uuidOfPosixIdentity(key.starts_with("user") ? CBPosixIdentity(CBPosixUser{id})
                                                        : CBPosixIdentity(CBPosixGroup{id})),
            CBIdentityAuthority::defaultIdentityAuthority());
    }

    /// Makes the items with random lists, in which groups and everyone have nothing.
    void makeItems() {
        std::filesystem::create_directory(tree_);
        std::ofstream wanted(folder / "wanted");
        for (int i = 0; i != items; ++i) {
            const auto name = std::to_string(i);
            if (i % 3 == 0)
                std::filesystem::create_directory(tree_ / name);
            else
                std::ofstream(tree_ / name).flush();
            const bool mayExecute = isSo();
            wanted << "# file: " << name << "\nuser::" << someLetters(mayExecute)
                   << "\ngroup::---\nother::---\n";
            // A user who has less than a group is shown as denied the rest; here all are allowed.
            for (const auto* const user : {"user:1:", "user:2:", "user:3:"}) {
                if (const auto letters = someLetters(mayExecute); letters != "---")
                    wanted << user << letters << '\n';
            }
            // As wide as can be, so that it holds nothing back.
            wanted << "mask::rwx\n\n";
        }
        wanted.close();
        const auto command = "cd '" + tree_.string() + "' && setfacl --restore=../wanted";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    /// What the entries are as they were read, by the printed list.
    static ExpectedEntries asRead(const MVAclEditor& editor, const Letters& printed) {
        ExpectedEntries expected;
        for (const auto& entry : editor.entries()) {
            std::string key;
            if (entry->isAcl()) {
                const auto who = posixIdentityOfUUID(*entry->uuid());
                const auto* const user = std::get_if<CBPosixUser>(&*who);
                key = user ? "user:" + std::to_string(user->uid)
                           : "group:" + std::to_string(std::get<CBPosixGroup>(*who).gid);
            } else {
                static const std::map<EntrySubject, std::string> base{
                    {EntrySubject::owner, "user:"},
                    {EntrySubject::owningGroup, "group:"},
                    {EntrySubject::everyone, "other:"}};
                key = base.at(subjectOfEntry(*entry));
            }
            const auto& letters = printed.at(key);
            Expected now{letters[0] == 'r', letters[1] == 'w', letters[2] == 'x'};
            now.isWhole = entry->isAcl() && now.reads && now.executes;
            expected[entry] = {key, now};
        }
        EXPECT_EQ(expected.size(), printed.size());
        return expected;
    }

    /// One edit, of the editor and of what is expected; returns what it was.
    std::string edit(MVAclEditor& editor, ExpectedEntries& expected) {
        std::ostringstream done;
        const auto& entries = editor.entries();
        const auto entry =
            entries[static_cast<std::size_t>(upTo(static_cast<int>(entries.size()) - 1))];
        auto& [key, now] = expected.at(entry);
        const auto& groups = entry->permissions();
        const bool on = isSo();
        const int kind = key == "other:" ? 0 : upTo(6);
        if (kind == 0) {
            const auto who = somebody();
            const auto added = editor.add(identityOf(who));
            expected[added] = {who, {true, true, true, true}};
            done << "add " << who << '\n';
        } else if (!entry->isAcl()) {
            const auto box = static_cast<std::size_t>(upTo(2));
            EXPECT_TRUE(editor.setBox(entry, *groups[box], on));
            (box == 0 ? now.reads : box == 1 ? now.writes : now.executes) = on;
            EXPECT_FALSE(editor.remove(entry));
            done << key << " box " << box << ' ' << on << '\n';
        } else if (kind == 1) {
            EXPECT_TRUE(editor.setBox(entry, *groups[0], on));
            now.setRead(on);
            done << key << " read " << on << '\n';
        } else if (kind == 2) {
            const auto wasOn = MVTreeNode::stateOf(*groups[1]) == MVStateOn;
            EXPECT_TRUE(editor.clickBox(entry, *groups[1]));
            now.writes = !wasOn;
            done << key << " click write\n";
        } else if (kind == 3) {
            EXPECT_TRUE(editor.setBox(entry, *groups[0]->childNodes()[1], on));
            now.setExecution(on);
            done << key << " execute " << on << '\n';
        } else if (kind == 4) {
            const std::array codes{MVAclGroupReadWrite, MVAclGroupRead, MVAclGroupWrite};
            const auto code = codes[static_cast<std::size_t>(upTo(2))];
            EXPECT_TRUE(editor.setPermissionGroup(entry, code));
            now.isChosen = false;
            now.setRead(code != MVAclGroupWrite);
            now.writes = code != MVAclGroupRead;
            done << key << " choice " << code << '\n';
        } else if (kind == 5) {
            const auto who = somebody();
            EXPECT_TRUE(editor.setIdentity(entry, identityOf(who)));
            done << key << " becomes " << who << '\n';
            key = who;
        } else {
            done << key << " goes\n";
            EXPECT_TRUE(editor.remove(entry));
            expected.erase(entry);
        }
        return done.str();
    }

    std::mt19937 random_;
    const std::filesystem::path tree_ = folder / "tree";
};

TEST_F(RandomEdits, AreStoredAsTheModelSaysAndGetfaclPrints) {
    const char* const wish = std::getenv("RANDOM_EDITS_SEED");
    const auto seed = wish ? static_cast<unsigned>(std::atoi(wish)) : 20261122U;
    std::printf("seed %u (RANDOM_EDITS_SEED)\n", seed);
    random_.seed(seed);
    makeItems();
    const auto before = printedLists(tree_);
    ASSERT_EQ(before.size(), items);
    std::map<std::string, Letters> expectedLists;
    std::map<std::string, std::string> told;
    int edits = 0;
    for (int i = 0; i != items; ++i) {
        const auto name = std::to_string(i);
        const auto acl = read(tree_ / name);
        ASSERT_TRUE(acl);
        const auto editor = MVAclEditor::init(*acl);
        auto expected = asRead(*editor, before.at(name));
        const bool couldExecute =
            editor->isFolder() ||
            std::any_of(expected.begin(), expected.end(),
                        [](const auto& each) { return each.second.second.executes; });
        std::ostringstream done;
        for (int count = upTo(mostEdits); count != 0; --count, ++edits) {
            done << edit(*editor, expected);
        }
        if (const auto error = write(editor->acl()))
            ADD_FAILURE() << name << ": " << error->localizedDescription() << '\n' << done.str();
        bool executes = couldExecute;
        for (const auto& [entry, each] : expected)
            executes |= each.second.asksToExecute();
        std::map<std::string, Expected> together;
        for (const auto& [entry, each] : expected) {
            auto& all = together[each.first];
            all.reads |= each.second.reads;
            all.writes |= each.second.writes;
            all.executes |= each.second.isWhole ? executes : each.second.executes;
        }
        for (const auto& [key, all] : together)
            expectedLists[name][key] = lettersOf(all.reads, all.writes, all.executes);
        told[name] = done.str();
    }
    const auto after = printedLists(tree_);
    for (const auto& [name, letters] : expectedLists)
        EXPECT_EQ(after.at(name), letters) << "seed " << seed << ", item " << name << '\n'
                                           << told.at(name);
    std::printf("%d edits of %d lists\n", edits, items);
    EXPECT_GT(edits, 2 * items);
}

}  // namespace
}  // namespace morvane
