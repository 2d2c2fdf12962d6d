// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "ArchiveTestModels.h"
#include "MemoryShortage.h"

/// What an archive that met a failed allocation leaves to the next one.
namespace morvane {
namespace {

NSData archiveOf(const std::vector<std::shared_ptr<test::Values>>& values) {
    NSKeyedArchiver coder;
    coder.encodeObjects(values, "values");
    return coder.finishEncoding();
}

TEST(NSKeyedArchiverWithoutMemory, LeavesNothingBehindThatTheNextOneMeets) {
    std::vector<std::shared_ptr<test::Values>> values;
    for (int i = 0; i != 20; ++i) {
        values.push_back(std::make_shared<test::Values>());
        values.back()->text = "A text that is too long for the string itself";
        values.back()->url = NSURL::fileURLWithPath("/a/folder");
    }
    const auto expected = archiveOf(values);
    for (const bool forGood : {false, true}) {
        for (long count = 0;; ++count) {
            // Other memory than that which has grown before.
            std::vector<std::unique_ptr<NSKeyedArchiver>> others;
            for (int i = 0; i != 16; ++i)
                others.push_back(std::make_unique<NSKeyedArchiver>());
            bool isReached = false;
            {
                const MemoryShortage shortage(count, forGood);
                try {
                    archiveOf(values);
                } catch (const std::bad_alloc&) {
                }
                isReached = shortage.isReached();
            }
            ASSERT_EQ(archiveOf(values), expected) << "allocation " << count;
            if (!isReached)
                break;
        }
    }
}

TEST(RecentArchiveWithoutMemory, IsReadAsEverWhereverAnAllocationFails) {
    for (const bool forGood : {false, true}) {
        for (long count = 0;; ++count) {
            // Of another text each time, which nobody remembers yet.
            auto label = std::make_shared<test::Label>();
            label->text = std::string(100, forGood ? 'a' : 'b') + std::to_string(count);
            NSKeyedArchiver coder;
            coder.encodeArchives(std::vector{label}, "labels", test::Label::front());
            const auto archive = coder.finishEncoding();
            const auto read = [&] {
                NSKeyedUnarchiver decoder(archive);
                const auto labels = decoder.decodeArchives("labels", test::Label::classObject(),
                                                           test::Label::front());
                return static_cast<const test::Label&>(*labels.at(0)).text;
            };
            bool isReached = false;
            {
                const MemoryShortage shortage(count, forGood);
                // The second one is remembered, and the third one is made again.
                for (int i = 0; i != 3; ++i) {
                    try {
                        read();
                    } catch (const std::bad_alloc&) {
                    }
                }
                isReached = shortage.isReached();
            }
            for (int i = 0; i != 3; ++i)
                ASSERT_EQ(read(), label->text) << "allocation " << count;
            if (!isReached)
                break;
        }
    }
}

}  // namespace
}  // namespace morvane
