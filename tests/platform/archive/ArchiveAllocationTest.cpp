// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
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

}  // namespace
}  // namespace morvane
