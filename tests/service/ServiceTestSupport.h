// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/MVAuthorization.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/fake/FakeAuthorizationServices.h"
#include "service/AuthorizationState.h"

namespace morvane {

/// A process that knows of no authorization yet, with a scripted system.
class AuthorizationTest : public testing::Test {
  protected:
    AuthorizationTest() {
        AuthorizationServices::setCurrent(services);
        AuthorizationState::startAnew();
    }
    ~AuthorizationTest() override {
        AuthorizationState::startAnew();
        AuthorizationServices::setCurrent(nullptr);
    }

    std::shared_ptr<FakeAuthorizationServices> services =
        std::make_shared<FakeAuthorizationServices>();
};

}  // namespace morvane
