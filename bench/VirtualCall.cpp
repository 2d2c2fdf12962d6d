// SPDX-License-Identifier: MIT
#include "VirtualCall.h"

namespace bench {
namespace {

class CountingTarget final : public Target {
  public:
    void stateWasSet(std::int64_t state) override {
        state_ = state;
        ++calls_;
    }

  private:
    std::int64_t state_ = 0;
    std::uint64_t calls_ = 0;
};

}  // namespace

Target& countingTarget() {
    static CountingTarget target;
    return target;
}

}  // namespace bench
