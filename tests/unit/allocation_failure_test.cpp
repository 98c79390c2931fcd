// InitVelkoraSDK when there is no memory for a converter.
#include <cstddef>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "frame/velkora_sdk.h"
#include "logging/log.h"
#include "support/machine_fixture.h"

namespace {
bool fail_nothrow_allocations = false;
}  // namespace

// Replaces the one of the runtime for the whole program; it does the same unless told to fail.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (fail_nothrow_allocations) return nullptr;
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace velkora {
namespace {

using namespace testing_support;

void Hear(void* context, const char*, int level, const char* text) {
  static_cast<std::vector<LogLine>*>(context)->push_back({level, text});
}

class AllocationFailure : public MachineTest {
 protected:
  ~AllocationFailure() override { fail_nothrow_allocations = false; }
};

TEST_F(AllocationFailure, InitGivesNullAfterItsLines) {
  const LogObserver observer{&Hear, &log_};
  fail_nothrow_allocations = true;
  VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", &observer, nullptr);
  fail_nothrow_allocations = false;
  EXPECT_EQ(sdk, nullptr);
  EXPECT_EQ(AllLines(), (std::vector<std::string>{"1 Velkora SDK Version: 1, 0, 0, 20-d-5130b0fa",
                                                  "1 Logs Folder: X:\\logs"}));
}

TEST_F(AllocationFailure, InitWorksAgainAfterwards) {
  fail_nothrow_allocations = true;
  EXPECT_EQ(InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr), nullptr);
  fail_nothrow_allocations = false;
  VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr);
  EXPECT_NE(sdk, nullptr);
  DestroyVelkoraSDK(sdk);
}

}  // namespace
}  // namespace velkora
