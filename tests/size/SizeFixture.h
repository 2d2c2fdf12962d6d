// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/platform/foundation/NSNotificationCenter.h>
#include <MorvaneOperation/platform/foundation/NSUserDefaults.h>
#include <gtest/gtest.h>

#include "platform/fake/FakeDefaultsStore.h"

namespace morvane {

/// Settings of the test's own, in the decimal base until it changes them.
class SizeFixture : public testing::Test {
  protected:
    SizeFixture() {
        NSUserDefaults::standardUserDefaults().setStore(store);
        MVFileSizeInfo::sharedFileSizeInfo()->updateConstants();
    }

    static void useBase2(bool base2) {
        NSUserDefaults::standardUserDefaults().setBool(base2, "useBase2MathForSizes");
    }
    static std::string text(std::int64_t size, bool allowBytes = true) {
        return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(size, allowBytes);
    }

    std::shared_ptr<FakeDefaultsStore> store = std::make_shared<FakeDefaultsStore>();
};

}  // namespace morvane
